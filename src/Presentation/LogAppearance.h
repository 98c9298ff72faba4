// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>
#include <QString>
#include <QStringView>

#include <array>

// Colours and fonts of the log levels, built from the user's settings. A value type: the table model
// holds one and is handed a new one whenever the settings or the font size change.
class LogAppearance
{
public:
    // The six levels that carry settings, in settings order.
    enum Level : int { Verbose, Debug, Info, Warning, Error, Fatal };
    static constexpr int LevelCount = 6;

    static constexpr double DefaultFontSize = 11.0;
    static constexpr double MinFontSize = 1.0;
    static constexpr double MaxFontSize = 30.0;

    // "V", "D", "I", "W", "E", "F".
    static QString levelLetter(Level level);
    // Settings keys of a level's colour and bold flag ("logVerboseColor", "logDebugBold", ...).
    static QString colorKey(Level level);
    static QString boldKey(Level level);
    static constexpr const char *FontSizeKey = "defaultFontSize";

    // The level's colour when nothing is stored. The debug default is invalid: use the text colour.
    static QColor defaultColor(Level level);
    static bool defaultBold(Level level);
    // The colour of the system's own ("QF") lines.
    static QColor systemLineColor();

    // Stored colour text: "#rrggbb" or "#aarrggbb"; empty or unreadable gives an invalid colour.
    static QColor colorFromText(const QString &text);
    static QString colorToText(const QColor &color);

    // The font size command: one step up or down; leaving 1..30 either way jumps back to 11.
    static double nextFontSize(double current, bool bigger);

    struct Inputs {
        std::array<QColor, LevelCount> colors; // invalid = textColor
        std::array<bool, LevelCount> bold{};
        double fontPointSize = 0; // 0 means the default size
        QFont fixedFont;          // the user's fixed-pitch font (size is replaced)
        QColor textColor;         // the palette's text colour
    };
    static LogAppearance build(const Inputs &inputs);

    // Reads the colours, bold flags and font size from the settings store. Needs a QGuiApplication for
    // the system fixed font and palette; without one a generic monospace font and black are used.
    static LogAppearance fromSettings();

    LogAppearance(); // defaults, font size 11

    // Text colour of a level: invalid for an empty or unknown level (the view's default applies).
    QColor color(QStringView level) const;
    // Font of a level; the "D" font for an empty level and for levels without a font of their own.
    QFont font(QStringView level) const;
    double fontPointSize() const { return m_fontPointSize; }
    // Point size of the V font times 1.5: the row height in points.
    double fontHeight() const;

    // The same colours and bold flags at another size.
    LogAppearance withPointSize(double pointSize) const;

private:
    struct Uninitialised {};
    explicit LogAppearance(Uninitialised) {}

    // Index 0..5 for V..F, 6 for "QF", -1 otherwise.
    static int slotForLevel(QStringView level);

    std::array<QColor, LevelCount + 1> m_colors;
    std::array<QFont, LevelCount + 1> m_fonts;
    double m_fontPointSize = DefaultFontSize;
};
