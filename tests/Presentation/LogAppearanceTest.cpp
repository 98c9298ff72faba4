// SPDX-License-Identifier: MIT
#include "Presentation/LogAppearance.h"

#include "Helpers/Settings.h"

#include <gtest/gtest.h>

namespace {

const char16_t *const Levels[] = {u"V", u"D", u"I", u"W", u"E", u"F", u"QF"};

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

// "V D I W E F QF" as each level draws: its colour name (or "none") and "b" when bold.
QString looks(const LogAppearance &appearance)
{
    QStringList out;
    for (const char16_t *level : Levels) {
        const QColor color = appearance.color(level);
        out << (color.isValid() ? color.name(QColor::HexArgb) : QStringLiteral("none")) +
                   (appearance.font(level).bold() ? QStringLiteral("b") : QString());
    }
    return out.join(u' ');
}

} // namespace

TEST(LogAppearanceTest, DefaultsAndTheSystemLinesLook)
{
    const LogAppearance appearance = LogAppearance::build(defaultInputs());
    // Debug takes the palette's text colour; only fatal is bold; the system's "QF" lines are blue.
    EXPECT_EQ(looks(appearance), "#ff0000ff #ff010203 #ff008000 #ffff8000 #ffff0000 #ffff0000b #ff0000ff");
    for (const char16_t *unknown : {u"", u"A", u"Q"})
        EXPECT_FALSE(appearance.color(unknown).isValid());
    EXPECT_DOUBLE_EQ(appearance.font(u"W").pointSizeF(), 11.0);
    EXPECT_DOUBLE_EQ(appearance.fontHeight(), 16.5);
    EXPECT_EQ(appearance.font(u"W").family(), QStringLiteral("Monospace"));

    LogAppearance::Inputs inputs = defaultInputs();
    inputs.bold = {true, false, false, true, true, false};
    inputs.fontPointSize = 14;
    inputs.colors[LogAppearance::Error] = QColor(0x12, 0x34, 0x56);
    const LogAppearance changed = LogAppearance::build(inputs);
    // "QF" uses the E font but keeps its own blue; an empty or unknown level is drawn in the D font.
    EXPECT_EQ(looks(changed), "#ff0000ffb #ff010203 #ff008000 #ffff8000b #ff123456b #ffff0000 #ff0000ffb");
    EXPECT_EQ(changed.font(u""), changed.font(u"D"));
    EXPECT_DOUBLE_EQ(changed.fontHeight(), 21.0);
}

TEST(LogAppearanceTest, FontSizes)
{
    LogAppearance::Inputs inputs = defaultInputs();
    inputs.fontPointSize = 0; // stored size zero means 11
    EXPECT_DOUBLE_EQ(LogAppearance::build(inputs).fontPointSize(), 11.0);
    inputs.fontPointSize = 45; // the limits apply to the size commands only
    const LogAppearance large = LogAppearance::build(inputs);
    EXPECT_DOUBLE_EQ(large.font(u"I").pointSizeF(), 45.0);

    // Steps of one within 1..30, wrapping to 11 past either end.
    const std::tuple<double, bool, double> steps[] = {{11, true, 12},  {11, false, 10}, {29, true, 30},
                                                      {30, true, 11},  {2, false, 1},   {1, false, 11},
                                                      {30, false, 29}, {1, true, 2},    {45, false, 11}};
    for (const auto &[from, up, to] : steps)
        EXPECT_DOUBLE_EQ(LogAppearance::nextFontSize(from, up), to) << from << (up ? " up" : " down");

    const LogAppearance bigger = large.withPointSize(18);
    EXPECT_EQ(looks(bigger), looks(large));
    for (const char16_t *level : Levels)
        EXPECT_DOUBLE_EQ(bigger.font(level).pointSizeF(), 18.0);
    EXPECT_DOUBLE_EQ(bigger.fontHeight(), 27.0);
}

TEST(LogAppearanceTest, ColourTextRoundTripsAndReadsColoursBoldFlagsAndSizeFromSettings)
{
    EXPECT_EQ(LogAppearance::colorToText(QColor(0x12, 0x34, 0x56)), QStringLiteral("#123456"));
    EXPECT_EQ(LogAppearance::colorToText(QColor(0x12, 0x34, 0x56, 0x80)), QStringLiteral("#80123456"));
    EXPECT_EQ(LogAppearance::colorFromText(QStringLiteral("#80123456")), QColor(0x12, 0x34, 0x56, 0x80));
    EXPECT_FALSE(LogAppearance::colorFromText(QStringLiteral("not a colour")).isValid());
    EXPECT_TRUE(LogAppearance::colorToText(QColor()).isEmpty());

    const QStringList keys = Settings::boldKeys() + Settings::colorKeys() + QStringList{"defaultFontSize"};
    const auto clear = [&] {
        for (const QString &key : keys)
            Settings::remove(key);
    };
    clear();
    const QString defaults = looks(LogAppearance::fromSettings());
    EXPECT_TRUE(LogAppearance::fromSettings().color(u"D").isValid());

    Settings::setValue(SettingsKey::logErrorBold, true);
    Settings::setValue(SettingsKey::logFatalBold, false);
    Settings::setValue(SettingsKey::logInfoColor, QStringLiteral("#123456"));
    Settings::setValue(SettingsKey::logDebugColor, QStringLiteral("#80abcdef"));
    Settings::setValue(SettingsKey::defaultFontSize, 14.0f);
    const LogAppearance stored = LogAppearance::fromSettings();
    EXPECT_EQ(looks(stored), "#ff0000ff #80abcdef #ff123456 #ffff8000 #ffff0000b #ffff0000 #ff0000ffb");
    EXPECT_DOUBLE_EQ(stored.font(u"V").pointSizeF(), 14.0);

    clear(); // removing the keys brings the defaults back
    EXPECT_EQ(looks(LogAppearance::fromSettings()), defaults);
    EXPECT_EQ(defaults.section(u' ', 2), "#ff008000 #ffff8000 #ffff0000 #ffff0000b #ff0000ff");
}
