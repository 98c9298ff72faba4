// SPDX-License-Identifier: MIT
#include "Analytics/CountlyDeviceInfo.h"

#include "Helpers/Settings.h"

#include <QDateTime>
#include <QFile>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScreen>

namespace {

QByteArray readSmallFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(64 * 1024);
}

} // namespace

QString CountlyDeviceInfo::openUDID()
{
    const QString stored = Settings::value(SettingsKey::openUDID).toString();
    static const QRegularExpression fortyHex(QStringLiteral("^[0-9a-f]{40}$"));
    if (fortyHex.match(stored).hasMatch())
        return stored;
    QByteArray bytes(20, '\0');
    QRandomGenerator::system()->generate(bytes.begin(), bytes.end());
    const QString made = QString::fromLatin1(bytes.toHex());
    Settings::setValue(SettingsKey::openUDID, made);
    Settings::setValue(SettingsKey::openUDIDCreatedTS, QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
    return made;
}

QString CountlyDeviceInfo::device()
{
    const QString name = QString::fromUtf8(readSmallFile(QStringLiteral("/sys/class/dmi/id/product_name"))).trimmed();
    return name.isEmpty() ? QStringLiteral("unknown") : name;
}

QString CountlyDeviceInfo::osVersionFrom(const QByteArray &osRelease)
{
    for (const QByteArray &line : osRelease.split('\n')) {
        if (!line.startsWith("VERSION_ID="))
            continue;
        QByteArray value = line.mid(11).trimmed();
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.mid(1, value.size() - 2);
        return QString::fromUtf8(value);
    }
    return {};
}

QString CountlyDeviceInfo::osVersion()
{
    QByteArray text = readSmallFile(QStringLiteral("/etc/os-release"));
    if (text.isEmpty())
        text = readSmallFile(QStringLiteral("/usr/lib/os-release"));
    return osVersionFrom(text);
}

QString CountlyDeviceInfo::resolution()
{
    const QScreen *screen = qobject_cast<QGuiApplication *>(QCoreApplication::instance())
                                ? QGuiApplication::primaryScreen()
                                : nullptr;
    if (!screen)
        return {};
    return QString::asprintf("%gx%g", double(screen->size().width()), double(screen->size().height()));
}

QString CountlyDeviceInfo::locale()
{
    return QLocale::system().name();
}

QByteArray CountlyDeviceInfo::metrics(const QString &appVersion)
{
    QJsonObject object;
    object.insert(QStringLiteral("_device"), device());
    object.insert(QStringLiteral("_os"), QStringLiteral("Linux"));
    object.insert(QStringLiteral("_os_version"), osVersion());
    if (const QString size = resolution(); !size.isEmpty())
        object.insert(QStringLiteral("_resolution"), size);
    object.insert(QStringLiteral("_locale"), locale());
    object.insert(QStringLiteral("_app_version"), appVersion);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
