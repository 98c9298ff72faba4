// SPDX-License-Identifier: MIT
#include "Android/AdbSettings.h"

#include "Helpers/Settings.h"

#include <QVariant>

namespace AdbSettings {

namespace {

// The one place that touches the store.
QVariant storedValue(const QString &key)
{
    return Settings::value(key);
}

QString textOr(const QString &key, const QString &fallback)
{
    const QString text = storedValue(key).toString();
    return text.isEmpty() ? fallback : text;
}

} // namespace

QString adbServer()
{
    return textOr(QStringLiteral("adbServer"), QStringLiteral("127.0.0.1"));
}

quint16 adbPort()
{
    // Like intValue: leading digits count, garbage gives 0.
    const QString text = textOr(QStringLiteral("adbPort"), QStringLiteral("5037")).trimmed();
    qsizetype end = 0;
    if (end < text.size() && (text[end] == u'-' || text[end] == u'+'))
        ++end;
    while (end < text.size() && text[end].isDigit())
        ++end;
    const qlonglong value = text.left(end).toLongLong();
    return static_cast<quint16>(static_cast<quint64>(value) & 0xffffU);
}

QString adbLogTags()
{
    return storedValue(QStringLiteral("adbLogTags")).toString();
}

bool clearLogOnStart()
{
    return storedValue(QStringLiteral("clearLogOnStart")).toBool();
}

} // namespace AdbSettings
