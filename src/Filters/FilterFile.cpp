// SPDX-License-Identifier: MIT
#include "Filters/FilterFile.h"

#include "Helpers/BinaryPropertyList.h"

#include <QXmlStreamReader>

namespace {

std::nullopt_t refuse(QString *error, const QString &why)
{
    if (error)
        *error = why;
    return std::nullopt;
}

} // namespace

std::optional<QList<FilterFile::Entry>> FilterFile::read(QByteArrayView data, QString *error)
{
    if (data.startsWith("bplist"))
        return readBinary(data, error);
    return readXml(data, error);
}

std::optional<QList<FilterFile::Entry>> FilterFile::readBinary(QByteArrayView data, QString *error)
{
    BinaryPropertyList plist(data);
    QString why;
    if (!plist.open(&why))
        return refuse(error, QStringLiteral("Not a filters file: %1.").arg(why));
    QList<quint64> keys;
    QList<quint64> values;
    if (!plist.dictionary(plist.top(), &keys, &values))
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
