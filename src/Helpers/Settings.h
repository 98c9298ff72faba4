// SPDX-License-Identifier: MIT
#pragma once

#include <QAnyStringView>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariant>

#include <optional>

// Keys of the per-user settings store.
namespace SettingsKey {
inline constexpr QStringView logVerboseBold = u"logVerboseBold";
inline constexpr QStringView logDebugBold = u"logDebugBold";
inline constexpr QStringView logInfoBold = u"logInfoBold";
inline constexpr QStringView logWarningBold = u"logWarningBold";
inline constexpr QStringView logErrorBold = u"logErrorBold";
inline constexpr QStringView logFatalBold = u"logFatalBold";
inline constexpr QStringView logVerboseColor = u"logVerboseColor";
inline constexpr QStringView logDebugColor = u"logDebugColorV2";
inline constexpr QStringView logInfoColor = u"logInfoColor";
inline constexpr QStringView logWarningColor = u"logWarningColor";
inline constexpr QStringView logErrorColor = u"logErrorColor";
inline constexpr QStringView logFatalColor = u"logFatalColor";
inline constexpr QStringView adbServer = u"adbServer";
inline constexpr QStringView adbPort = u"adbPort";
inline constexpr QStringView defaultFontSize = u"defaultFontSize";
inline constexpr QStringView clearLogOnStart = u"clearLogOnStart";
inline constexpr QStringView adbLogTags = u"adbLogTags";
inline constexpr QStringView maxBufferSize = u"QUILLFERN_MAX_BUFFER_SIZE";
// Saved filters: a map name -> printed filter text. Its default set is created by the saved-filter code
// when the key is absent, so no default is registered here.
inline constexpr QStringView predicates = u"predicates";
// Usage statistics: the analytics server's base address; empty (the default) means nothing is sent.
inline constexpr QStringView analyticsServer = u"analyticsServer";
// The anonymous device id of the usage statistics (40 hexadecimal digits) and when it was made.
inline constexpr QStringView openUDID = u"OpenUDID";
inline constexpr QStringView openUDIDCreatedTS = u"OpenUDID_createdTS";
} // namespace SettingsKey

// The per-user settings store (QSettings, organisation and application "Quillfern"), with the registered
// defaults of every key in one table (Settings.cpp). A default applies whenever nothing is stored under
// its key. Colours are stored as colour names, "#rrggbb" or "#aarrggbb" (QColor::name(QColor::HexArgb)).
//
// logDebugColorV2 has no registered default: its default is the platform's text colour, which only the
// GUI layer knows, so value() gives an invalid QVariant and the GUI substitutes the palette's text colour.
//
// Every function is thread-safe (one QSettings per call; QSettings shares one cache per process).
class Settings
{
public:
    Settings() = delete;

    // The stored value, else the registered default, else an invalid QVariant.
    static QVariant value(QAnyStringView key);
    // The registered default of key (invalid when none).
    static QVariant defaultValue(QAnyStringView key);
    // Whether a value is stored (registered defaults do not count).
    static bool contains(QAnyStringView key);
    // Both emit SettingsNotifier::changed(key).
    static void setValue(QAnyStringView key, const QVariant &value);
    static void remove(QAnyStringView key);

    // Writes adbServer "127.0.0.1" and adbPort "5037" when missing or empty. The table itself is always in
    // force; this is called once at start-up.
    static void registerDefaults();

    // Every key of the table, in table order (colour keys, bold keys, connection, font, ...).
    static QStringList keys();
    // The six bold keys and the six colour keys, in level order V, D, I, W, E, F.
    static QStringList boldKeys();
    static QStringList colorKeys();

    // Typed convenience.
    static QString adbServer();            // as stored: may be empty if the user cleared it
    static QString adbPort();              // as stored
    static QString adbLogTags();           // "" when absent
    static bool clearLogOnStart();         // false when absent
    static double defaultFontSize();       // 0 when absent or unreadable; the caller turns 0 into 11
    static std::optional<int> bufferCapacityOverride(); // QUILLFERN_MAX_BUFFER_SIZE when 1 or more
    static QString analyticsServer();      // trimmed; empty: usage statistics are off
};

// One change signal for the whole store. Lives on the thread that first asked for it (moved to the
// application's thread when there is one); changed() is emitted on the thread that wrote the value,
// so receivers on other threads get it queued.
class SettingsNotifier : public QObject
{
    Q_OBJECT
public:
    static SettingsNotifier &instance();

signals:
    void changed(const QString &key);

private:
    SettingsNotifier() = default;
};
