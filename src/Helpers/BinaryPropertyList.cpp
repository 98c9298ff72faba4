// SPDX-License-Identifier: MIT
#include "Helpers/BinaryPropertyList.h"

bool BinaryPropertyList::open(QString *why)
{
    if (!m_data.startsWith("bplist00")) {
        *why = QStringLiteral("unknown binary property list version");
        return false;
    }
    if (m_data.size() < 8 + 32) {
        *why = QStringLiteral("the file is too short");
        return false;
    }
    const quint64 t = quint64(m_data.size()) - 32;
    m_offsetSize = int(byte(t + 6));
    m_refSize = int(byte(t + 7));
    const quint64 objects = number(t + 8, 8);
    m_top = number(t + 16, 8);
    const quint64 table = number(t + 24, 8);
    const auto sizeOk = [](int n) { return n >= 1 && n <= 8; };
    // Each object takes at least one byte, so there cannot be more of them than bytes.
    if (!sizeOk(m_offsetSize) || !sizeOk(m_refSize) || objects == 0 || objects > t || m_top >= objects ||
        table < 8 || table > t || (t - table) / quint64(m_offsetSize) < objects) {
        *why = QStringLiteral("its table of objects is damaged");
        return false;
    }
    m_objects = objects;
    m_table = table;
    return true;
}

std::optional<quint64> BinaryPropertyList::offsetOf(quint64 ref) const
{
    if (ref >= m_objects)
        return std::nullopt;
    const quint64 offset = number(m_table + ref * quint64(m_offsetSize), m_offsetSize);
    if (offset < 8 || offset >= m_table)
        return std::nullopt;
    return offset;
}

bool BinaryPropertyList::dictionary(quint64 ref, QList<quint64> *keys, QList<quint64> *values) const
{
    const std::optional<quint64> offset = offsetOf(ref);
    if (!offset || (byte(*offset) >> 4) != 0xD)
        return false;
    quint64 pos = *offset + 1;
    const std::optional<quint64> count = lengthAfter(byte(*offset), &pos);
    // Every entry needs two references: a count beyond the object area is a lie.
    if (!count || *count > (m_table - pos) / (2 * quint64(m_refSize)))
        return false;
    for (quint64 i = 0; i < *count; ++i)
        keys->append(number(pos + i * quint64(m_refSize), m_refSize));
    pos += *count * quint64(m_refSize);
    for (quint64 i = 0; i < *count; ++i)
        values->append(number(pos + i * quint64(m_refSize), m_refSize));
    return true;
}

std::optional<QString> BinaryPropertyList::string(quint64 ref) const
{
    const std::optional<quint64> offset = offsetOf(ref);
    if (!offset)
        return std::nullopt;
    const uchar marker = byte(*offset);
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

std::optional<quint64> BinaryPropertyList::arraySize(quint64 ref) const
{
    const std::optional<quint64> offset = offsetOf(ref);
    if (!offset || (byte(*offset) >> 4) != 0xA)
        return std::nullopt;
    quint64 pos = *offset + 1;
    const std::optional<quint64> count = lengthAfter(byte(*offset), &pos);
    if (!count || *count > (m_table - pos) / quint64(m_refSize))
        return std::nullopt;
    return count;
}

quint64 BinaryPropertyList::number(quint64 pos, int size) const
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i)
        value = value << 8 | byte(pos + quint64(i));
    return value;
}

std::optional<quint64> BinaryPropertyList::lengthAfter(uchar marker, quint64 *pos) const
{
    if ((marker & 0x0F) != 0x0F)
        return marker & 0x0F;
    if (*pos >= m_table)
        return std::nullopt;
    const uchar intMarker = byte(*pos);
    const int size = 1 << (intMarker & 0x0F);
    if ((intMarker >> 4) != 0x1 || size > 8 || *pos + 1 + quint64(size) > m_table)
        return std::nullopt;
    const quint64 value = number(*pos + 1, size);
    *pos += 1 + quint64(size);
    return value;
}
