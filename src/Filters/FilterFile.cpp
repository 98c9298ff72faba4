// SPDX-License-Identifier: MIT
#include "Filters/FilterFile.h"

#include <QXmlStreamReader>

namespace {

std::nullopt_t refuse(QString *error, const QString &why)
{
    if (error)
        *error = why;
    return std::nullopt;
}

// Binary property lists ("bplist00"): a table of object offsets and a 32-byte trailer at the end.
class BinaryPlist
{
public:
    explicit BinaryPlist(QByteArrayView data) : m_data(data) {}

    bool readTrailer(QString *why)
    {
        if (m_data.size() < 8 + 32) {
            *why = QStringLiteral("the file is too short");
            return false;
        }
        const qsizetype t = m_data.size() - 32;
        m_offsetSize = int(byte(t + 6));
        m_refSize = int(byte(t + 7));
        const quint64 objects = number(t + 8, 8);
        m_top = number(t + 16, 8);
        const quint64 table = number(t + 24, 8);
        const auto sizeOk = [](int n) { return n >= 1 && n <= 8; };
        // Each object takes at least one byte, so there cannot be more of them than bytes.
        if (!sizeOk(m_offsetSize) || !sizeOk(m_refSize) || objects == 0 || objects > quint64(t) ||
            m_top >= objects || table < 8 || table > quint64(t) ||
            (quint64(t) - table) / quint64(m_offsetSize) < objects) {
            *why = QStringLiteral("its table of objects is damaged");
            return false;
        }
        m_objects = objects;
        m_table = table;
        return true;
    }

    quint64 top() const { return m_top; }

    // Offset of object `ref` within the object area, or nothing when out of range.
    std::optional<quint64> offsetOf(quint64 ref) const
    {
        if (ref >= m_objects)
            return std::nullopt;
        const quint64 offset = number(qsizetype(m_table + ref * quint64(m_offsetSize)), m_offsetSize);
        if (offset < 8 || offset >= m_table)
            return std::nullopt;
        return offset;
    }

    // The dictionary at `offset`: its key and value references.
    bool dictionary(quint64 offset, QList<quint64> *keys, QList<quint64> *values) const
    {
        const uchar marker = byte(qsizetype(offset));
        if ((marker >> 4) != 0xD)
            return false;
        quint64 pos = offset + 1;
        const std::optional<quint64> count = lengthAfter(marker, &pos);
        // Every entry needs two references: a count beyond the table is a lie.
        if (!count || *count > (m_table - pos) / (2 * quint64(m_refSize)))
            return false;
        for (quint64 i = 0; i < *count; ++i)
            keys->append(number(qsizetype(pos + i * quint64(m_refSize)), m_refSize));
        pos += *count * quint64(m_refSize);
        for (quint64 i = 0; i < *count; ++i)
            values->append(number(qsizetype(pos + i * quint64(m_refSize)), m_refSize));
        return true;
    }

    // The string object `ref` (ASCII, UTF-16 big endian or UTF-8), or nothing when it is not one.
    std::optional<QString> string(quint64 ref) const
    {
        const std::optional<quint64> offset = offsetOf(ref);
        if (!offset)
            return std::nullopt;
        const uchar marker = byte(qsizetype(*offset));
        const int kind = marker >> 4;
        if (kind != 0x5 && kind != 0x6 && kind != 0x7)
            return std::nullopt;
        quint64 pos = *offset + 1;
        const std::optional<quint64> length = lengthAfter(marker, &pos);
        const quint64 unit = kind == 0x6 ? 2 : 1;
        if (!length || *length > (m_table - pos) / unit)
            return std::nullopt;
        const QByteArrayView bytes = m_data.sliced(qsizetype(pos), qsizetype(*length * unit));
        if (kind == 0x5)
            return QString::fromLatin1(bytes);
        if (kind == 0x7)
            return QString::fromUtf8(bytes);
        QString text(qsizetype(*length), Qt::Uninitialized);
        for (qsizetype i = 0; i < text.size(); ++i)
            text[i] = QChar(char16_t(uchar(bytes[2 * i]) << 8 | uchar(bytes[2 * i + 1])));
        return text;
    }

private:
    uchar byte(qsizetype pos) const { return uchar(m_data[pos]); }

    quint64 number(qsizetype pos, int size) const
    {
        quint64 value = 0;
        for (int i = 0; i < size; ++i)
            value = value << 8 | byte(pos + i);
        return value;
    }

    // A count in the marker's low nibble, or (0xF) in an integer object after it; moves *pos past it.
    std::optional<quint64> lengthAfter(uchar marker, quint64 *pos) const
    {
        if ((marker & 0x0F) != 0x0F)
            return marker & 0x0F;
        if (*pos >= m_table)
            return std::nullopt;
        const uchar intMarker = byte(qsizetype(*pos));
        const int size = 1 << (intMarker & 0x0F);
        if ((intMarker >> 4) != 0x1 || size > 8 || *pos + 1 + quint64(size) > m_table)
            return std::nullopt;
        const quint64 value = number(qsizetype(*pos + 1), size);
        *pos += 1 + quint64(size);
        return value;
    }

    QByteArrayView m_data;
    int m_offsetSize = 0;
    int m_refSize = 0;
    quint64 m_objects = 0;
    quint64 m_top = 0;
    quint64 m_table = 0;
};

} // namespace

std::optional<QList<FilterFile::Entry>> FilterFile::read(QByteArrayView data, QString *error)
{
    if (data.startsWith("bplist"))
        return readBinary(data, error);
    return readXml(data, error);
}

std::optional<QList<FilterFile::Entry>> FilterFile::readBinary(QByteArrayView data, QString *error)
{
    if (!data.startsWith("bplist00"))
        return refuse(error, QStringLiteral("Not a filters file: unknown binary property list version."));
    BinaryPlist plist(data);
    QString why;
    if (!plist.readTrailer(&why))
        return refuse(error, QStringLiteral("Not a filters file: %1.").arg(why));
    QList<quint64> keys;
    QList<quint64> values;
    const std::optional<quint64> root = plist.offsetOf(plist.top());
    if (!root || !plist.dictionary(*root, &keys, &values))
        return refuse(error, QStringLiteral("Not a filters file: it does not hold a dictionary of filters."));
    QList<Entry> entries;
    entries.reserve(keys.size());
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const std::optional<QString> name = plist.string(keys[i]);
        if (!name)
            return refuse(error, QStringLiteral("Not a filters file: entry %1 has no name.").arg(i + 1));
        const std::optional<QString> text = plist.string(values[i]);
        if (!text)
            return refuse(error, QStringLiteral("Not a filters file: the filter \"%1\" is not text.").arg(*name));
        entries.append({*name, *text});
    }
    return entries;
}

std::optional<QList<FilterFile::Entry>> FilterFile::readXml(QByteArrayView data, QString *error)
{
    // The accepted shape, element by element: [plist] dict (key string)* /dict [/plist]. The stream
    // reader keeps no recursion of its own, and the first element out of place ends the reading.
    QXmlStreamReader xml(data.toByteArray());
    const auto nextElement = [&xml]() {
        while (!xml.atEnd()) {
            const QXmlStreamReader::TokenType token = xml.readNext();
            if (token == QXmlStreamReader::StartElement || token == QXmlStreamReader::EndElement)
                return token;
            if (token == QXmlStreamReader::Characters && !xml.isWhitespace())
                return QXmlStreamReader::Invalid;
        }
        return QXmlStreamReader::Invalid;
    };
    const auto malformed = [&](const QString &what) {
        if (xml.hasError()) {
            return refuse(error, QStringLiteral("Not a filters file: %1 (line %2).")
                                     .arg(xml.errorString())
                                     .arg(xml.lineNumber()));
        }
        return refuse(error, QStringLiteral("Not a filters file: %1 (line %2).").arg(what).arg(xml.lineNumber()));
    };

    QXmlStreamReader::TokenType token = nextElement();
    const bool wrapped = token == QXmlStreamReader::StartElement && xml.name() == u"plist";
    if (wrapped)
        token = nextElement();
    if (token != QXmlStreamReader::StartElement || xml.name() != u"dict")
        return malformed(QStringLiteral("it does not hold a dictionary of filters"));

    QList<Entry> entries;
    while (true) {
        token = nextElement();
        if (token == QXmlStreamReader::EndElement)
            break; // </dict>
        if (token != QXmlStreamReader::StartElement || xml.name() != u"key")
            return malformed(QStringLiteral("expected the name of a filter"));
        const QString name = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
        if (xml.hasError() || nextElement() != QXmlStreamReader::StartElement)
            return malformed(QStringLiteral("expected the filter \"%1\"").arg(name));
        if (xml.name() != u"string")
            return malformed(QStringLiteral("the filter \"%1\" is not text").arg(name));
        const QString text = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
        if (xml.hasError())
            return malformed(QString());
        entries.append({name, text});
    }
    if (wrapped && (nextElement() != QXmlStreamReader::EndElement || xml.name() != u"plist"))
        return malformed(QStringLiteral("more than one dictionary"));
    while (!xml.atEnd() && !xml.hasError()) {
        const QXmlStreamReader::TokenType rest = xml.readNext();
        if (rest == QXmlStreamReader::StartElement || (rest == QXmlStreamReader::Characters && !xml.isWhitespace()))
            return malformed(QStringLiteral("content after the dictionary"));
    }
    if (xml.hasError())
        return malformed(QString());
    return entries;
}
