// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QPoint>
#include <QSize>
#include <QStringList>

#include <optional>

// The simulated screen: every capture is a new PNG with a running frame counter (as seven-segment
// digits: text would need fonts and so a GUI application) and a cross-hair where the last tap or swipe
// ended, so a person sees the round trip.
class DeviceScreen
{
public:
    DeviceScreen(QSize size, const QString &model);

    // "screencap -p": the next frame as PNG.
    QByteArray capture();
    // An "input" command's words ("input", "tap", "540", "1200"): taps and swipes move the mark.
    void input(const QStringList &words);

    // "1080x2400" -> 1080 x 2400; invalid when it is not two positive numbers.
    static QSize parseSize(const QString &text);

private:
    QImage m_background;
    int m_frame = 0;
    std::optional<QPoint> m_touch;
};
