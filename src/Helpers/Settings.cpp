// SPDX-License-Identifier: MIT
#include "Helpers/Settings.h"

#include <QCoreApplication>
#include <QSettings>
#include <QThread>

#include <array>

namespace {

struct Default {
    QStringView key;
    QVariant value; // invalid: no registered default
};

// The one table of keys and defaults.
const std::array<Default, 22> &table()
{
    static const std::array<Default, 22> defaults{{
        {SettingsKey::logVerboseBold, false},
        {SettingsKey::logDebugBold, false},
        {SettingsKey::logInfoBold, false},
        {SettingsKey::logWarningBold, false},
        {SettingsKey::logErrorBold, false},
        {SettingsKey::logFatalBold, true},
        {SettingsKey::logVerboseColor, QStringLiteral("#0000ff")}, // blue
        {SettingsKey::logDebugColor, QVariant()},                  // the GUI's text colour
        {SettingsKey::logInfoColor, QStringLiteral("#008000")},    // r 0.0, g 0.5, b 0.0
        {SettingsKey::logWarningColor, QStringLiteral("#ff8000")}, // orange (1.0, 0.5, 0.0)
        {SettingsKey::logErrorColor, QStringLiteral("#ff0000")},
        {SettingsKey::logFatalColor, QStringLiteral("#ff0000")},
        {SettingsKey::adbServer, QStringLiteral("127.0.0.1")},
        {SettingsKey::adbPort, QStringLiteral("5037")},
        {SettingsKey::defaultFontSize, QVariant()}, // none: 0 or nothing means 11
        {SettingsKey::clearLogOnStart, QVariant()}, // none: absent reads false
        {SettingsKey::adbLogTags, QVariant()},      // none: absent reads ""
        {SettingsKey::maxBufferSize, QVariant()},   // none: the buffer keeps 55000
        {SettingsKey::predicates, QVariant()},      // created by the saved-filter code
        {SettingsKey::analyticsServer, QString()},  // off until the user names a server
        {SettingsKey::openUDID, QVariant()},        // made on first use by the analytics client
        {SettingsKey::openUDIDCreatedTS, QVariant()},
    }};
    return defaults;
}

QSettings store()
{
    return QSettings(QStringLiteral("Quillfern"), QStringLiteral("Quillfern"));
}

void notify(QAnyStringView key)
{
    emit SettingsNotifier::instance().changed(key.toString());
}

bool isMissingOrEmpty(const QSettings &settings, QStringView key)
{
    return !settings.contains(key) || settings.value(key).toString().isEmpty();
}

} // namespace

QVariant Settings::defaultValue(QAnyStringView key)
{
    for (const Default &entry : table()) {
        if (key == entry.key)
            return entry.value;
    }
    return {};
}

QVariant Settings::value(QAnyStringView key)
{
    const QSettings settings = store();
    if (settings.contains(key))
        return settings.value(key);
    return defaultValue(key);
}

bool Settings::contains(QAnyStringView key)
{
    return store().contains(key);
}

void Settings::setValue(QAnyStringView key, const QVariant &value)
{
    {
        QSettings settings = store();
        settings.setValue(key, value);
    }
    notify(key);
}

void Settings::remove(QAnyStringView key)
{
    {
        QSettings settings = store();
        settings.remove(key);
    }
    notify(key);
}

void Settings::registerDefaults()
{
    for (const QStringView key : {SettingsKey::adbServer, SettingsKey::adbPort}) {
        if (isMissingOrEmpty(store(), key))
            setValue(key, defaultValue(key));
    }
}

QStringList Settings::keys()
{
    QStringList result;
    for (const Default &entry : table())
        result.append(entry.key.toString());
    return result;
}

QStringList Settings::boldKeys()
{
    return {SettingsKey::logVerboseBold.toString(), SettingsKey::logDebugBold.toString(),
            SettingsKey::logInfoBold.toString(),    SettingsKey::logWarningBold.toString(),
            SettingsKey::logErrorBold.toString(),   SettingsKey::logFatalBold.toString()};
}

QStringList Settings::colorKeys()
{
    return {SettingsKey::logVerboseColor.toString(), SettingsKey::logDebugColor.toString(),
            SettingsKey::logInfoColor.toString(),    SettingsKey::logWarningColor.toString(),
            SettingsKey::logErrorColor.toString(),   SettingsKey::logFatalColor.toString()};
}

QString Settings::adbServer()
{
    return value(SettingsKey::adbServer).toString();
}

QString Settings::adbPort()
{
    return value(SettingsKey::adbPort).toString();
}

QString Settings::adbLogTags()
{
    return value(SettingsKey::adbLogTags).toString();
}

bool Settings::clearLogOnStart()
{
    return value(SettingsKey::clearLogOnStart).toBool();
}

double Settings::defaultFontSize()
{
    bool ok = false;
    const double size = value(SettingsKey::defaultFontSize).toDouble(&ok);
    return ok ? size : 0.0;
}

std::optional<int> Settings::bufferCapacityOverride()
{
    bool ok = false;
    const qlonglong size = value(SettingsKey::maxBufferSize).toLongLong(&ok);
    if (!ok || size < 1)
        return std::nullopt;
    return int(qMin<qlonglong>(size, std::numeric_limits<int>::max()));
}

QString Settings::analyticsServer()
{
    return value(SettingsKey::analyticsServer).toString().trimmed();
}

SettingsNotifier &SettingsNotifier::instance()
{
    static SettingsNotifier *notifier = [] {
        auto *created = new SettingsNotifier; // lives until exit, like the application
        if (QCoreApplication *app = QCoreApplication::instance(); app && created->thread() != app->thread())
            created->moveToThread(app->thread());
        return created;
    }();
    return *notifier;
}
