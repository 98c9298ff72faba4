// SPDX-License-Identifier: MIT
#include "Helpers/Settings.h"

#include <QSettings>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

class SettingsTest : public ::testing::Test
{
protected:
    void SetUp() override { clearStore(); }
    void TearDown() override { clearStore(); }

    static void clearStore()
    {
        QSettings store(QStringLiteral("Quillfern"), QStringLiteral("Quillfern"));
        store.clear();
        store.sync();
    }
};

} // namespace

TEST_F(SettingsTest, RegisteredDefaultsApplyWhenNothingIsStored)
{
    // Every key of the table in order, with its default; "-": none registered here (the GUI's text colour, font
    // size 11, false, "", capacity 55000, the default filters).
    QStringList table;
    for (const QString &key : Settings::keys()) {
        const QVariant value = Settings::value(key);
        table << key + u'=' + (value.isValid() ? value.toString() : QStringLiteral("-"));
        EXPECT_FALSE(Settings::contains(key)) << "a default is not a stored value";
    }
    EXPECT_EQ(
        table.join(u' ').toStdString(),
        "logVerboseBold=false logDebugBold=false logInfoBold=false logWarningBold=false logErrorBold=false "
        "logFatalBold=true logVerboseColor=#0000ff logDebugColorV2=- logInfoColor=#008000 "
        "logWarningColor=#ff8000 logErrorColor=#ff0000 logFatalColor=#ff0000 adbServer=127.0.0.1 adbPort=5037 "
        "defaultFontSize=- clearLogOnStart=- adbLogTags=- QUILLFERN_MAX_BUFFER_SIZE=- predicates=- analyticsServer= "
        "OpenUDID=- OpenUDID_createdTS=-");
    EXPECT_FALSE(Settings::value(u"noSuchKey").isValid());
}

TEST_F(SettingsTest, TypedAccessorsConvertStoredValues)
{
    // The appearance keys' stored values, their removal and the keys' order: LogAppearanceTest.
    Settings::setValue(SettingsKey::predicates, QVariantMap());
    EXPECT_TRUE(Settings::contains(SettingsKey::predicates)); // empty but present

    Settings::setValue(SettingsKey::adbLogTags, QStringLiteral("ActivityManager:I *:S"));
    EXPECT_EQ(Settings::adbLogTags(), QStringLiteral("ActivityManager:I *:S"));
    Settings::setValue(SettingsKey::defaultFontSize, 13.5);
    EXPECT_EQ(Settings::defaultFontSize(), 13.5);
    Settings::setValue(SettingsKey::defaultFontSize, QStringLiteral("big"));
    EXPECT_EQ(Settings::defaultFontSize(), 0.0);

    const std::pair<QVariant, std::optional<int>> sizes[] = {
        {0, std::nullopt},     {-5, std::nullopt},
        {"abc", std::nullopt}, {1, 1},
        {"70000", 70000},      {qlonglong(1) << 40, std::numeric_limits<int>::max()}};
    for (const auto &[stored, expected] : sizes) {
        Settings::setValue(SettingsKey::maxBufferSize, stored);
        EXPECT_EQ(Settings::bufferCapacityOverride(), expected) << stored.toString().toStdString();
    }
}

TEST_F(SettingsTest, RegisterDefaultsWritesConnectionSettingsWhenMissingOrEmpty)
{
    Settings::registerDefaults();
    const QSettings store(QStringLiteral("Quillfern"), QStringLiteral("Quillfern"));
    EXPECT_EQ(store.allKeys(), (QStringList{"adbPort", "adbServer"})) << "only the connection settings are written";
    EXPECT_EQ(store.value("adbPort"), "5037");
    // The test program's private folder, never the user's own configuration.
    EXPECT_EQ(store.fileName(), qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Quillfern/Quillfern.conf"));

    Settings::setValue(SettingsKey::adbServer, QString());
    Settings::setValue(SettingsKey::adbPort, QStringLiteral("15037"));
    EXPECT_EQ(Settings::adbServer(), QString()); // stored empty stays empty until registered again
    Settings::registerDefaults();
    EXPECT_EQ(Settings::adbServer(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(Settings::adbPort(), QStringLiteral("15037")); // a real value is kept
}

TEST_F(SettingsTest, RemovalAndWritesAreSignalledWithTheirKey)
{
    QSignalSpy spy(&SettingsNotifier::instance(), &SettingsNotifier::changed);
    Settings::setValue(SettingsKey::adbPort, QStringLiteral("1"));
    Settings::remove(SettingsKey::adbPort); // a removal too
    EXPECT_EQ(spy, (QList<QVariantList>{{"adbPort"}, {"adbPort"}}));
    EXPECT_FALSE(Settings::contains(SettingsKey::adbPort));
}

TEST_F(SettingsTest, ConcurrentWritersAndReaders)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                Settings::setValue(QStringLiteral("concurrent%1").arg(t), i);
                (void)Settings::value(SettingsKey::adbServer);
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(Settings::value(QStringLiteral("concurrent%1").arg(t)).toInt(), 99);
}
