// SPDX-License-Identifier: MIT
#include "Presentation/LogAppearance.h"

#include "Helpers/Settings.h"

#include <gtest/gtest.h>

namespace {
LogAppearance::Inputs defaultInputs()
{
    LogAppearance::Inputs inputs;
    for (int i = 0; i < LogAppearance::LevelCount; ++i) {
        inputs.colors[i] = LogAppearance::defaultColor(LogAppearance::Level(i));
        inputs.bold[i] = LogAppearance::defaultBold(LogAppearance::Level(i));
    }
    inputs.fixedFont = QFont(QStringLiteral("Monospace"));
    inputs.textColor = QColor(1, 2, 3);
    return inputs;
}
} // namespace

TEST(LogAppearanceTest, DefaultsFollowTheSettingsTable)
{
    const LogAppearance appearance = LogAppearance::build(defaultInputs());
    EXPECT_EQ(appearance.color(u"V"), QColor(0, 0, 255));
    EXPECT_EQ(appearance.color(u"D"), QColor(1, 2, 3)); // the palette's text colour
    EXPECT_EQ(appearance.color(u"I"), QColor(0, 128, 0));
    EXPECT_EQ(appearance.color(u"W"), QColor(255, 128, 0));
    EXPECT_EQ(appearance.color(u"E"), QColor(255, 0, 0));
    EXPECT_EQ(appearance.color(u"F"), QColor(255, 0, 0));
    EXPECT_EQ(appearance.color(u"QF"), QColor(0, 0, 255));
    EXPECT_FALSE(appearance.color(u"").isValid());
    EXPECT_FALSE(appearance.color(u"A").isValid());
    EXPECT_FALSE(appearance.color(u"Q").isValid());

    // Only fatal is bold by default.
    for (const char16_t *level : {u"V", u"D", u"I", u"W", u"E"})
        EXPECT_FALSE(appearance.font(level).bold()) << QString::fromUtf16(level).toStdString();
    EXPECT_TRUE(appearance.font(u"F").bold());
    EXPECT_DOUBLE_EQ(appearance.fontPointSize(), 11.0);
    EXPECT_DOUBLE_EQ(appearance.font(u"W").pointSizeF(), 11.0);
    EXPECT_DOUBLE_EQ(appearance.fontHeight(), 16.5);
    EXPECT_EQ(appearance.font(u"W").family(), QStringLiteral("Monospace"));
}

TEST(LogAppearanceTest, BoldFlagsAndTheSystemLineFont)
{
    LogAppearance::Inputs inputs = defaultInputs();
    inputs.bold = {true, false, false, true, true, false};
    inputs.fontPointSize = 14;
    inputs.colors[LogAppearance::Error] = QColor(0x12, 0x34, 0x56);
    const LogAppearance appearance = LogAppearance::build(inputs);

    EXPECT_TRUE(appearance.font(u"V").bold());
    EXPECT_FALSE(appearance.font(u"D").bold());
    EXPECT_TRUE(appearance.font(u"W").bold());
    EXPECT_FALSE(appearance.font(u"F").bold());
    // "QF" uses the E font but keeps its own blue.
    EXPECT_EQ(appearance.font(u"QF"), appearance.font(u"E"));
    EXPECT_TRUE(appearance.font(u"QF").bold());
    EXPECT_EQ(appearance.color(u"QF"), QColor(0, 0, 255));
    EXPECT_EQ(appearance.color(u"E"), QColor(0x12, 0x34, 0x56));
    // An empty or unknown level is drawn in the D font.
    EXPECT_EQ(appearance.font(u""), appearance.font(u"D"));
    EXPECT_EQ(appearance.font(u"A"), appearance.font(u"D"));
    EXPECT_DOUBLE_EQ(appearance.fontHeight(), 21.0);
}

TEST(LogAppearanceTest, StoredSizeZeroMeansElevenAndLargeStoredSizesAreKept)
{
    LogAppearance::Inputs inputs = defaultInputs();
    inputs.fontPointSize = 0;
    EXPECT_DOUBLE_EQ(LogAppearance::build(inputs).fontPointSize(), 11.0);
    // The limits apply to the size commands only.
    inputs.fontPointSize = 45;
    const LogAppearance large = LogAppearance::build(inputs);
    EXPECT_DOUBLE_EQ(large.fontPointSize(), 45.0);
    EXPECT_DOUBLE_EQ(large.font(u"I").pointSizeF(), 45.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(large.fontPointSize(), false), 11.0);
}

TEST(LogAppearanceTest, FontSizeStepsWrapToElevenPastEitherEnd)
{
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(11, true), 12.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(11, false), 10.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(29, true), 30.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(30, true), 11.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(2, false), 1.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(1, false), 11.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(30, false), 29.0);
    EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(1, true), 2.0);
}

TEST(LogAppearanceTest, WithPointSizeKeepsColoursAndBoldness)
{
    const LogAppearance base = LogAppearance::build(defaultInputs());
    const LogAppearance bigger = base.withPointSize(18);
    EXPECT_DOUBLE_EQ(bigger.fontPointSize(), 18.0);
    for (const char16_t *level : {u"V", u"D", u"I", u"W", u"E", u"F", u"QF"}) {
        EXPECT_DOUBLE_EQ(bigger.font(level).pointSizeF(), 18.0);
        EXPECT_EQ(bigger.font(level).bold(), base.font(level).bold());
        EXPECT_EQ(bigger.color(level), base.color(level));
    }
    EXPECT_DOUBLE_EQ(bigger.fontHeight(), 27.0);
}

TEST(LogAppearanceTest, ColourTextRoundTrips)
{
    EXPECT_EQ(LogAppearance::colorToText(QColor(0x12, 0x34, 0x56)), QStringLiteral("#123456"));
    EXPECT_EQ(LogAppearance::colorToText(QColor(0x12, 0x34, 0x56, 0x80)), QStringLiteral("#80123456"));
    EXPECT_EQ(LogAppearance::colorFromText(QStringLiteral("#80123456")), QColor(0x12, 0x34, 0x56, 0x80));
    EXPECT_EQ(LogAppearance::colorFromText(QStringLiteral("#ff8000")), QColor(255, 128, 0));
    EXPECT_FALSE(LogAppearance::colorFromText(QString()).isValid());
    EXPECT_FALSE(LogAppearance::colorFromText(QStringLiteral("not a colour")).isValid());
    EXPECT_TRUE(LogAppearance::colorToText(QColor()).isEmpty());
}

TEST(LogAppearanceTest, ReadsColoursBoldFlagsAndSizeFromSettings)
{
    const QStringList keys = Settings::boldKeys() + Settings::colorKeys();
    for (const QString &key : keys)
        Settings::remove(key);
    Settings::remove(SettingsKey::defaultFontSize);

    LogAppearance appearance = LogAppearance::fromSettings();
    EXPECT_DOUBLE_EQ(appearance.fontPointSize(), 11.0);
    EXPECT_EQ(appearance.color(u"I"), QColor(0, 128, 0));
    EXPECT_EQ(appearance.color(u"W"), QColor(255, 128, 0));
    EXPECT_TRUE(appearance.color(u"D").isValid());
    EXPECT_TRUE(appearance.font(u"F").bold());
    EXPECT_FALSE(appearance.font(u"E").bold());

    Settings::setValue(SettingsKey::logErrorBold, true);
    Settings::setValue(SettingsKey::logFatalBold, false);
    Settings::setValue(SettingsKey::logInfoColor, QStringLiteral("#123456"));
    Settings::setValue(SettingsKey::logDebugColor, QStringLiteral("#80abcdef"));
    Settings::setValue(SettingsKey::defaultFontSize, 14.0f);
    appearance = LogAppearance::fromSettings();
    EXPECT_TRUE(appearance.font(u"E").bold());
    EXPECT_TRUE(appearance.font(u"QF").bold());
    EXPECT_FALSE(appearance.font(u"F").bold());
    EXPECT_EQ(appearance.color(u"I"), QColor(0x12, 0x34, 0x56));
    EXPECT_EQ(appearance.color(u"D"), QColor(0xab, 0xcd, 0xef, 0x80));
    EXPECT_DOUBLE_EQ(appearance.fontPointSize(), 14.0);
    EXPECT_DOUBLE_EQ(appearance.font(u"V").pointSizeF(), 14.0);

    // Removing the keys brings the defaults back.
    for (const QString &key : keys)
        Settings::remove(key);
    Settings::setValue(SettingsKey::defaultFontSize, 0.0f);
    appearance = LogAppearance::fromSettings();
    EXPECT_FALSE(appearance.font(u"E").bold());
    EXPECT_TRUE(appearance.font(u"F").bold());
    EXPECT_EQ(appearance.color(u"I"), QColor(0, 128, 0));
    EXPECT_DOUBLE_EQ(appearance.fontPointSize(), 11.0);
    Settings::remove(SettingsKey::defaultFontSize);
}
