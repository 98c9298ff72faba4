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
#include <QSysInfo>

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

QString CountlyDeviceInfo::osVersion()
{
    // Qt reads VERSION_ID of os-release already; it says "unknown" where we send nothing.
    const QString version = QSysInfo::productVersion();
    return version == QLatin1String("unknown") ? QString() : version;
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
