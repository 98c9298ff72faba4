// SPDX-License-Identifier: MIT
#include "Scenes/RemoteScreenMonitorSheet.h"

#include "Scenes/ScreenImageView.h"
#include "support/AdbRecorders.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QMouseEvent>
#include <QRegularExpression>
#include <QTcpServer>

namespace {

// Settings of a server that is not there: every capture and input fails at once.
AdbConnectionSettings deadServer()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    AdbConnectionSettings settings;
    settings.port = probe.serverPort();
    return settings; // the probe closes here
}

void mouse(QWidget *w, QEvent::Type type, QPointF pos, Qt::MouseButtons buttons)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

} // namespace

TEST(RemoteScreenMonitorSheet, NormalizePointScalesEachAxisAndClampsOnlyAbove)
{
    const QSizeF image(1080, 1920), view(540, 960);
    const struct
    {
        QPointF window;
        QPointF device;
    } cases[] = {
        {{0, 0}, {0, 1920}},                                 // bottom-left corner
        {{540, 960}, {1080, 0}},                             // top-right
        {{270, 480}, {540, 960}}, {{600, 480}, {1080, 960}}, // beyond the right edge: clamped to the width
        {{-10, 480}, {-20, 960}},                            // left of the view: kept negative
        {{10, 1000}, {20, -80}},                             // above the view: no clamp at 0
        {{10, -5}, {20, 1920}},                              // below: clamped to the height
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(QStringLiteral("%1,%2").arg(c.window.x()).arg(c.window.y()).toStdString());
        EXPECT_EQ(RemoteScreenMonitorSheet::normalizePoint(c.window, 960, image, view), c.device);
    }
    // No view size: 0/0 becomes the image's size, x/0 is clamped to it.
    EXPECT_EQ(RemoteScreenMonitorSheet::normalizePoint({0, 0}, 0, image, QSizeF(0, 0)), QPointF(1080, 1920));
    EXPECT_EQ(RemoteScreenMonitorSheet::normalizePoint({5, 0}, 0, image, QSizeF(0, 0)), QPointF(1080, 1920));
}

TEST(RemoteScreenMonitorSheet, KeysReachTheMappingAsTheCharactersItExpects)
{
    using S = RemoteScreenMonitorSheet;
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_Up, {}, {}), QString(QChar(0)));
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_Right, {}, {}), QString(QChar(3)));
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_Backspace, Qt::ControlModifier, QStringLiteral("\b")),
              QString(QChar(0x7f)));
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_Return, {}, QStringLiteral("\r")), QStringLiteral("\r"));
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_A, Qt::ControlModifier, QString(QChar(1))), QStringLiteral("a"));
    EXPECT_EQ(S::keyEventCharacters(Qt::Key_Percent, Qt::ShiftModifier, QStringLiteral("%")), QStringLiteral("%"));
}

TEST(RemoteScreenMonitorSheet, AFailedCaptureSwitchesAutoRefreshOffAndOffersStart)
{
    RemoteScreenMonitorSheet sheet(deadServer());
    sheet.setDeviceId(QStringLiteral("gone"));
    EXPECT_EQ(sheet.autoRefreshItem()->text(), QStringLiteral("Stop"));
    EXPECT_FALSE(sheet.snapshotItem()->isEnabled());
    sheet.showWindow();
    ASSERT_TRUE(waitUntil([&] { return sheet.autoRefreshItem()->text() == QStringLiteral("Start"); }, 10000));
    EXPECT_TRUE(sheet.snapshotItem()->isEnabled());
    EXPECT_FALSE(sheet.screenSource()->isRunning());
    EXPECT_FALSE(sheet.isTouchEnabled());

    // Start again, then Stop by hand.
    sheet.onToggleAutoRefresh();
    EXPECT_EQ(sheet.autoRefreshItem()->text(), QStringLiteral("Stop"));
    EXPECT_TRUE(sheet.screenSource()->isRunning());
    sheet.onToggleAutoRefresh();
    EXPECT_FALSE(sheet.screenSource()->isRunning());
    sheet.close();
}

TEST(RemoteScreenMonitorSheet, PointerTapsWithoutDragAndSwipesFromThePressAfterOneAndCopiesTheDeviceImage)
{
    RemoteScreenMonitorSheet sheet(deadServer());
    ScreenImageView *view = sheet.imageView();
    view->resize(540, 960);
    LogCapture log;

    // No image yet: the pointer and the copy do nothing.
    mouse(view, QEvent::MouseButtonPress, {100, 100}, Qt::LeftButton);
    mouse(view, QEvent::MouseButtonRelease, {100, 100}, Qt::NoButton);
    EXPECT_EQ(log.count(QStringLiteral("----- ")), 0);
    sheet.copyFullImage();
    EXPECT_NE(sheet.statusText(), QStringLiteral("Copied to Clipboard"));

    QImage screen(1080, 1920, QImage::Format_RGB32);
    screen.fill(Qt::darkGreen);
    sheet.onScreenUpdate(QStringLiteral("dev"), screen);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^Last Updated: \\d\\d:\\d\\d:\\d\\d$")).match(sheet.statusText()).hasMatch())
        << sheet.statusText().toStdString();

    QEnterEvent enter({10, 10}, {10, 10}, view->mapToGlobal(QPointF(10, 10)));
    QApplication::sendEvent(view, &enter);
    EXPECT_EQ(sheet.statusText(), QStringLiteral("Click to send touch events to device"));
    mouse(view, QEvent::MouseMove, {270, 480}, Qt::NoButton);
    EXPECT_EQ(sheet.statusText(), QStringLiteral("x=540, y=960"));

    // Moving with the button down but without a drag event is still a tap, at the release point.
    mouse(view, QEvent::MouseButtonPress, {100, 100}, Qt::LeftButton);
    mouse(view, QEvent::MouseButtonRelease, {110, 120}, Qt::NoButton);
    EXPECT_EQ(log.startingWith(QStringLiteral("----- ")),
              QStringList({QStringLiteral("----- adb shell input tap 220 240")}));

    mouse(view, QEvent::MouseButtonPress, {100, 100}, Qt::LeftButton);
    mouse(view, QEvent::MouseMove, {200, 300}, Qt::LeftButton);
    mouse(view, QEvent::MouseButtonRelease, {270, 480}, Qt::NoButton);
    EXPECT_EQ(log.startingWith(QStringLiteral("----- ")).value(1),
              QStringLiteral("----- shell:input swipe 200 200 540 960 100"));

    // Outside again, the time of the last image comes back.
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view, &leave);
    EXPECT_TRUE(sheet.statusText().startsWith(QStringLiteral("Last Updated: ")));
    sheet.copyFullImage();
    EXPECT_EQ(sheet.statusText(), QStringLiteral("Copied to Clipboard"));
    EXPECT_EQ(QApplication::clipboard()->image().size(), QSize(1080, 1920));
    // The scaled copy is the view-sized JPEG: lossy, but close.
    const QImage scaled = RemoteScreenMonitorSheet::resizeImage(screen, 270, 480);
    EXPECT_EQ(scaled.size(), QSize(270, 480));
    EXPECT_LE(std::abs(qGreen(scaled.pixel(100, 100)) - qGreen(screen.pixel(0, 0))), 4);

    // An image that did not decode clears the view and turns touch off.
    sheet.onScreenUpdate(QStringLiteral("dev"), QImage());
    EXPECT_FALSE(sheet.isTouchEnabled());
}
