// SPDX-License-Identifier: MIT
#include "Helpers/Extensions.h"

#include <QAssociativeIterable>
#include <QDebug>
#include <QSequentialIterable>
#include <QUrl>

namespace qf {

namespace {

// The last component of the URL's path, as NSURL gives it: trailing slashes do not count, and a path of
// slashes only gives "/".
QString lastPathComponent(const QUrl &url)
{
    const QString path = url.path();
    if (path.isEmpty())
        return {};
    qsizetype end = path.size();
    while (end > 0 && path[end - 1] == u'/')
        --end;
    if (end == 0)
        return QStringLiteral("/");
    const qsizetype start = path.lastIndexOf(u'/', end - 1) + 1;
    return path.mid(start, end - start);
}

bool isText(const QVariant &value)
{
    const int id = value.metaType().id();
    return id == QMetaType::QString || id == QMetaType::QByteArray || id == QMetaType::QChar;
}

template <typename Iterable>
QString pairsToString(const Iterable &iterable)
{
    QString result;
    for (auto it = iterable.begin(); it != iterable.end(); ++it) {
        result += result.isEmpty() ? QStringLiteral("{") : QStringLiteral(", ");
        result += toString(it.key()) + u'=' + toString(it.value());
    }
    return result.isEmpty() ? result : result + u'}';
}

} // namespace

QString toString(const QVariant &value)
{
    if (!value.isValid() || value.metaType().id() == QMetaType::Nullptr)
        return QStringLiteral("nil");
    const int id = value.metaType().id();
    if (id == QMetaType::QVariantMap)
        return dictionaryToDelimitedString(value.toMap());
    if (id == QMetaType::QVariantHash)
        return dictionaryToDelimitedString(value.toHash());
    if (value.canView<QAssociativeIterable>())
        return pairsToString(value.value<QAssociativeIterable>());
    if (!isText(value) && value.canView<QSequentialIterable>()) {
        QVariantList list;
        for (const QVariant &element : value.value<QSequentialIterable>())
            list.append(element);
        return arrayToDelimitedString(list);
    }
    if (id == QMetaType::QUrl)
        return QStringLiteral("URL:") + lastPathComponent(value.toUrl());
    if (value.canConvert<QString>())
        return value.toString();
    QMetaType type = value.metaType();
    if (!type.hasRegisteredDebugStreamOperator())
        return QString::fromLatin1(type.name());
    QString text;
    {
        QDebug stream(&text);
        stream.noquote().nospace();
        type.debugStream(stream, value.constData());
    }
    return text;
}

QString dictionaryToDelimitedString(const QVariantMap &map)
{
    return pairsToString(map);
}

QString dictionaryToDelimitedString(const QVariantHash &hash)
{
    return pairsToString(hash);
}

QString arrayToDelimitedString(const QVariantList &list)
{
    QString result = QStringLiteral("{");
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i > 0)
            result += QStringLiteral(", ");
        result += toString(list[i]);
    }
    return result + u'}';
}

} // namespace qf
