// SPDX-License-Identifier: MIT
#include "Presentation/LogAppearance.h"

#include "Helpers/Logger.h"
#include "Helpers/Settings.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QPalette>

namespace {
constexpr int QfSlot = LogAppearance::LevelCount;

const std::array<const char *, LogAppearance::LevelCount> Letters = {"V", "D", "I", "W", "E", "F"};
const std::array<const char *, LogAppearance::LevelCount> ColorKeys = {
    "logVerboseColor", "logDebugColorV2", "logInfoColor", "logWarningColor", "logErrorColor", "logFatalColor"};
const std::array<const char *, LogAppearance::LevelCount> BoldKeys = {
    "logVerboseBold", "logDebugBold", "logInfoBold", "logWarningBold", "logErrorBold", "logFatalBold"};

QFont genericFixedFont()
{
    QFont font(QStringLiteral("Monospace"));
    font.setStyleHint(QFont::TypeWriter);
    font.setFixedPitch(true);
    return font;
}
} // namespace

QString LogAppearance::levelLetter(Level level)
{
    return QString::fromLatin1(Letters[level]);
}

QString LogAppearance::colorKey(Level level)
{
    return QString::fromLatin1(ColorKeys[level]);
}

QString LogAppearance::boldKey(Level level)
{
    return QString::fromLatin1(BoldKeys[level]);
}

// The settings table holds the defaults; the debug colour has none (the GUI's text colour).
QColor LogAppearance::defaultColor(Level level)
{
    return colorFromText(Settings::defaultValue(colorKey(level)).toString());
}

bool LogAppearance::defaultBold(Level level)
{
    return Settings::defaultValue(boldKey(level)).toBool();
}

QColor LogAppearance::systemLineColor()
{
    return QColor(0, 0, 255);
}

QColor LogAppearance::colorFromText(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QColor color = QColor::fromString(trimmed);
    return color.isValid() ? color : QColor();
}

QString LogAppearance::colorToText(const QColor &color)
{
    if (!color.isValid())
        return {};
    return color.alpha() == 255 ? color.name(QColor::HexRgb) : color.name(QColor::HexArgb);
}

double LogAppearance::nextFontSize(double current, bool bigger)
{
    const double next = current + (bigger ? 1.0 : -1.0);
    // Stepping past either end returns to the default rather than stopping at the limit.
    if (next > MaxFontSize || next < MinFontSize)
        return DefaultFontSize;
    return next;
}

LogAppearance::LogAppearance()
{
    Inputs inputs;
    for (int i = 0; i < LevelCount; ++i) {
        inputs.colors[i] = defaultColor(Level(i));
        inputs.bold[i] = defaultBold(Level(i));
    }
    inputs.fixedFont = genericFixedFont();
    inputs.textColor = Qt::black;
    *this = build(inputs);
}

LogAppearance LogAppearance::build(const Inputs &inputs)
{
    LogAppearance result = LogAppearance(Uninitialised{});
    result.m_fontPointSize = inputs.fontPointSize == 0 ? DefaultFontSize : inputs.fontPointSize;
    for (int i = 0; i < LevelCount; ++i) {
        result.m_colors[i] = inputs.colors[i].isValid() ? inputs.colors[i] : inputs.textColor;
        QFont font = inputs.fixedFont;
        font.setPointSizeF(result.m_fontPointSize);
        // A bold level uses the bold cut of the same fixed-pitch family.
        font.setBold(inputs.bold[i]);
        result.m_fonts[i] = font;
    }
    result.m_colors[QfSlot] = systemLineColor();
    result.m_fonts[QfSlot] = result.m_fonts[Error];
    return result;
}

LogAppearance LogAppearance::fromSettings()
{
    Inputs inputs;
    for (int i = 0; i < LevelCount; ++i) {
        inputs.colors[i] = colorFromText(Settings::value(colorKey(Level(i))).toString());
        inputs.bold[i] = Settings::value(boldKey(Level(i))).toBool();
    }
    inputs.fontPointSize = Settings::defaultFontSize();
    if (inputs.fontPointSize == 0)
        QF_LOG(QStringLiteral("Will use font size 11 as default"));
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        inputs.fixedFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        inputs.textColor = QGuiApplication::palette().color(QPalette::Text);
    } else {
        inputs.fixedFont = genericFixedFont();
        inputs.textColor = Qt::black;
    }
    return build(inputs);
}

int LogAppearance::slotForLevel(QStringView level)
{
    if (level.size() == 1) {
        for (int i = 0; i < LevelCount; ++i) {
            if (level[0] == QLatin1Char(Letters[i][0]))
                return i;
        }
        return -1;
    }
    return level == u"QF" ? QfSlot : -1;
}

QColor LogAppearance::color(QStringView level) const
{
    const int slot = slotForLevel(level);
    return slot < 0 ? QColor() : m_colors[slot];
}

QFont LogAppearance::font(QStringView level) const
{
    const int slot = slotForLevel(level);
    return slot < 0 ? m_fonts[Debug] : m_fonts[slot];
}

double LogAppearance::fontHeight() const
{
    return m_fonts[Verbose].pointSizeF() * 1.5;
}

LogAppearance LogAppearance::withPointSize(double pointSize) const
{
    LogAppearance result = *this;
    result.m_fontPointSize = pointSize;
    for (QFont &font : result.m_fonts)
        font.setPointSizeF(pointSize);
    return result;
}
