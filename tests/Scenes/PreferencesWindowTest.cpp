// SPDX-License-Identifier: MIT
#include "Scenes/PreferencesWindow.h"

#include "Helpers/Settings.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QColorDialog>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

namespace {

void clearSettings()
{
    for (const QString &key : Settings::boldKeys() + Settings::colorKeys())
        Settings::remove(key);
    for (QStringView key : {SettingsKey::clearLogOnStart, SettingsKey::adbServer, SettingsKey::adbPort})
        Settings::remove(key);
}

struct PreferencesWindowFixture : ::testing::Test
{
    std::unique_ptr<QuillfernPreferences> prefs;

    void SetUp() override
    {
        clearSettings(); // earlier tests in this program may have pointed the connection elsewhere
        Settings::registerDefaults();
        prefs = std::make_unique<QuillfernPreferences>();
        prefs->showWindow();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(prefs.get()));
    }
    void TearDown() override
    {
        prefs.reset();
        clearSettings();
    }
};

} // namespace

TEST_F(PreferencesWindowFixture, GeneralPaneComesFirstStoresEditsAtOnceAndBrowsesFromHome)
{
    EXPECT_EQ(prefs->toolbarIdentifiers(), QStringList({"General", "Appearance"}));
    EXPECT_EQ(prefs->windowTitle(), "General");
    EXPECT_TRUE(prefs->generalView()->isVisible());
    EXPECT_FALSE(prefs->appearanceView()->isVisible());
    EXPECT_EQ(prefs->geometry(), prefs->frameForView(prefs->generalView())); // the window fits its pane
    EXPECT_EQ(prefs->adbServer()->text() + ':' + prefs->adbPort()->text(), "127.0.0.1:5037");
    EXPECT_FALSE(prefs->clearLogOnConnect()->isChecked());

    prefs->adbServer()->selectAll();
    QTest::keyClicks(prefs->adbServer(), QStringLiteral("10.0.0.2"));
    EXPECT_EQ(Settings::adbServer(), QStringLiteral("10.0.0.2"));
    prefs->adbPort()->selectAll();
    QTest::keyClicks(prefs->adbPort(), QStringLiteral("5038"));
    EXPECT_EQ(Settings::adbPort(), QStringLiteral("5038"));
    QTest::mouseClick(prefs->clearLogOnConnect(), Qt::LeftButton, {},
                      QPoint(5, prefs->clearLogOnConnect()->height() / 2));
    EXPECT_TRUE(Settings::clearLogOnStart());

    // The statistics server is stored once the edit is done, not per keystroke; empty by default.
    EXPECT_TRUE(prefs->analyticsServer()->text().isEmpty());
    QTest::keyClicks(prefs->analyticsServer(), QStringLiteral("http://stats.test "));
    EXPECT_TRUE(Settings::analyticsServer().isEmpty());
    QTest::keyClick(prefs->analyticsServer(), Qt::Key_Return);
    EXPECT_EQ(Settings::analyticsServer(), QStringLiteral("http://stats.test"));
    Settings::remove(SettingsKey::analyticsServer);

    // Browse opens a panel in the home folder.
    QFileDialog *panel = prefs->browseForADB();
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(QDir(panel->directory()).absolutePath(), QDir::homePath());
    panel->reject();
}

TEST_F(PreferencesWindowFixture, AppearancePaneCrossFadesInAndStoresAnnouncesAndRestoresBoldFlagsAndColours)
{
    QSignalSpy fonts(prefs.get(), &QuillfernPreferences::fontsChanged);
    QAction *appearance = prefs->toolbarItem(QStringLiteral("Appearance"));
    ASSERT_NE(appearance, nullptr);
    appearance->trigger();
    EXPECT_EQ(prefs->windowTitle(), QStringLiteral("Appearance"));
    EXPECT_TRUE(prefs->isAnimating());
    EXPECT_EQ(prefs->lastAnimationDurationMs(), 250);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !prefs->isAnimating(); }, 3000));
    EXPECT_FALSE(prefs->generalView()->isVisible());
    EXPECT_TRUE(prefs->appearanceView()->isVisible());
    EXPECT_EQ(prefs->geometry(), prefs->frameForView(prefs->appearanceView()));
    EXPECT_EQ(prefs->appearanceView()->graphicsEffect(), nullptr);

    prefs->boldCheckBox(LogAppearance::Error)->click();
    EXPECT_TRUE(Settings::value(SettingsKey::logErrorBold).toBool());
    prefs->boldCheckBox(LogAppearance::Fatal)->click(); // bold by default
    EXPECT_FALSE(Settings::value(SettingsKey::logFatalBold).toBool());
    prefs->setLevelColor(LogAppearance::Warning, QColor(0x10, 0x20, 0x30));
    EXPECT_EQ(Settings::value(SettingsKey::logWarningColor).toString(), QStringLiteral("#102030"));
    // A colour well opens a dialog on the level's colour; its choice is stored.
    prefs->colorWell(LogAppearance::Info)->click();
    auto *dialog = prefs->findChild<QColorDialog *>(QStringLiteral("colorDialog"));
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->currentColor(), QColor(0, 128, 0));
    dialog->setCurrentColor(QColor(0xaa, 0xbb, 0xcc));
    dialog->accept();
    EXPECT_EQ(Settings::value(SettingsKey::logInfoColor).toString(), QStringLiteral("#aabbcc"));
    EXPECT_EQ(fonts.count(), 4);

    // Restore Defaults removes every bold and colour key, with one announcement.
    prefs->restoreDefaultsButton()->click();
    for (const QString &key : Settings::boldKeys() + Settings::colorKeys())
        EXPECT_FALSE(Settings::contains(key)) << key.toStdString();
    EXPECT_FALSE(prefs->boldCheckBox(LogAppearance::Error)->isChecked());
    EXPECT_TRUE(prefs->boldCheckBox(LogAppearance::Fatal)->isChecked());
    EXPECT_EQ(fonts.count(), 5);

    // Without cross-fading the switch is immediate.
    prefs->setCrossFade(false);
    prefs->toolbarItem(QStringLiteral("General"))->trigger();
    EXPECT_FALSE(prefs->isAnimating());
    EXPECT_FALSE(prefs->appearanceView()->isVisible());
    EXPECT_EQ(prefs->geometry(), prefs->frameForView(prefs->generalView()));

    // Shift slows the fade down, when that is switched on.
    EXPECT_EQ(ZWPrefsWindowController::crossFadeDurationMs(true, Qt::ShiftModifier), 1250);
    EXPECT_EQ(ZWPrefsWindowController::crossFadeDurationMs(false, Qt::ShiftModifier), 250);
    EXPECT_EQ(ZWPrefsWindowController::crossFadeDurationMs(true, Qt::NoModifier), 250);
}

TEST(PreferencesWindowTest, SharedInstanceIsOnePerOwner)
{
    QWidget owner;
    QuillfernPreferences *first = QuillfernPreferences::sharedPrefsWindowController(&owner);
    EXPECT_EQ(QuillfernPreferences::sharedPrefsWindowController(&owner), first);
    EXPECT_EQ(first->parentWidget(), &owner);
    EXPECT_TRUE(first->isWindow());
}
