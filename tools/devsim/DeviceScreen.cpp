// SPDX-License-Identifier: MIT
#include "DeviceScreen.h"

#include <QBuffer>
#include <QImageWriter>
#include <QPainter>

namespace {

// Segments a..g of the digits 0-9, bit 0 = a (top), clockwise, g (middle) last.
constexpr unsigned char kSegments[10] = {0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f};

void drawDigit(QPainter &p, int digit, QRect box, const QColor &colour)
{
    const int t = std::max(2, box.width() / 6); // stroke
    const int w = box.width(), h = box.height(), x = box.x(), y = box.y();
    const QRect segments[7] = {
        {x, y, w, t},                   // a
        {x + w - t, y, t, h / 2},       // b
        {x + w - t, y + h / 2, t, h / 2}, // c
        {x, y + h - t, w, t},           // d
        {x, y + h / 2, t, h / 2},       // e
        {x, y, t, h / 2},               // f
        {x, y + (h - t) / 2, w, t},     // g
    };
    for (int s = 0; s < 7; ++s)
        if (kSegments[digit] & (1 << s))
            p.fillRect(segments[s], colour);
}

} // namespace

DeviceScreen::DeviceScreen(QSize size, const QString &model) : m_background(size, QImage::Format_RGB32)
{
    // A phone's home screen: status bar, a title bar in the model's colour, a grid of "app icons".
    const int w = size.width(), h = size.height();
    const auto sx = [w](double f) { return int(f * w); };
    const auto sy = [h](double f) { return int(f * h); };
    m_background.fill(QColor(0xf5, 0xf5, 0xf5));
    QPainter p(&m_background);
    p.fillRect(0, 0, w, sy(0.03), QColor(0x1e, 0x88, 0xe5));
    p.fillRect(0, sy(0.03), w, sy(0.08), QColor::fromHsv(int(qHash(model) % 360), 160, 200));
    const QColor colours[] = {Qt::red, Qt::darkGreen, Qt::blue, Qt::magenta, Qt::darkYellow, Qt::darkCyan};
    for (int i = 0; i < 12; ++i)
        p.fillRect(sx(0.09 + (i % 4) * 0.22), sy(0.45 + (i / 4) * 0.11), sx(0.16), sx(0.16), colours[i % 6]);
    p.fillRect(0, sy(0.94), w, h - sy(0.94), Qt::black);
}

QByteArray DeviceScreen::capture()
{
    ++m_frame;
    QImage frame = m_background;
    QPainter p(&frame);
    const int w = frame.width(), h = frame.height();
    // The counter, right-aligned under the title bar.
    const int digitW = std::max(6, w / 14), digitH = digitW * 2, gap = digitW / 3;
    const QString number = QString::number(m_frame);
    int x = w - gap - int(number.size()) * (digitW + gap);
    const int y = int(0.13 * h);
    for (const QChar c : number) {
        drawDigit(p, c.digitValue(), QRect(x, y, digitW, digitH), QColor(0x21, 0x21, 0x21));
        x += digitW + gap;
    }
    if (m_touch) {
        const int r = std::max(8, w / 20), t = std::max(2, w / 200);
        p.setPen(QPen(QColor(0xe5, 0x39, 0x35), t));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(*m_touch, r, r);
        p.fillRect(m_touch->x() - 2 * r, m_touch->y() - t / 2, 4 * r, t, QColor(0xe5, 0x39, 0x35));
        p.fillRect(m_touch->x() - t / 2, m_touch->y() - 2 * r, t, 4 * r, QColor(0xe5, 0x39, 0x35));
    }
    p.end();
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "PNG");
    writer.setQuality(80); // zlib level 1: the frame rate should be the transfer's, not zlib's
    writer.write(frame);
    return png;
}

void DeviceScreen::input(const QStringList &words)
{
    const QString kind = words.value(1);
    qsizetype at = -1;
    if (kind == u"tap" && words.size() >= 4)
        at = 2;
    else if (kind == u"swipe" && words.size() >= 6)
        at = 4; // where the finger left the screen
    if (at < 0)
        return;
    bool okX = false, okY = false;
    const double x = words.at(at).toDouble(&okX), y = words.at(at + 1).toDouble(&okY);
    if (okX && okY)
        m_touch = QPoint(int(x), int(y));
}

QSize DeviceScreen::parseSize(const QString &text)
{
    const QStringList parts = text.split(u'x');
    if (parts.size() != 2)
        return {};
    bool okW = false, okH = false;
    const int w = parts[0].toInt(&okW), h = parts[1].toInt(&okH);
    return okW && okH && w > 0 && h > 0 ? QSize(w, h) : QSize();
}
