// SPDX-License-Identifier: MIT
// Screenshots of a simulated device through the real adb server.
#include "Session/DeviceScreenDatasource.h"
#include "Helpers/MainThread.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"
#include "support/LogCapture.h"

#include <QCoreApplication>

namespace {

struct ScreenRecorder : DeviceScreenDatasourceDelegate
{
    void onScreenUpdate(const QString &deviceId, const QImage &screen) override
    {
        EXPECT_TRUE(isMainThread());
        ids.append(deviceId);
        images.append(screen);
    }
    void onScreenUpdateFailedWithError(const std::optional<AdbError> &, const QString &deviceId) override
    {
        EXPECT_TRUE(isMainThread());
        ids.append(deviceId);
        ++failures;
    }

    QStringList ids;
    QList<QImage> images;
    int failures = 0;
};

class DeviceScreenDatasourceTest : public AdbTest
{
protected:
    ScreenRecorder rec;
    DeviceScreenDatasource source;
};

} // namespace

// A snapshot through the old pty's line-feed translation, then new frames from a plain device until
// monitoring stops, and a capture failing once the device has gone.
TEST_F(DeviceScreenDatasourceTest, SnapshotThenAutoRefreshUntilStoppedOrTheDeviceGoesAway)
{
    source.setConnectionSettings(env().connectionSettings());
    source.setDelegate(&rec);
    source.setDeviceId(startDevice({QStringLiteral("--screen-size"), QStringLiteral("540x1200"), "--crlf"}));
    LogCapture log;
    source.startMonitoring(false);
    ASSERT_TRUE(waitUntil([&] { return !rec.images.isEmpty(); }, 15000));
    EXPECT_EQ(rec.images.first().size(), QSize(540, 1200));
    // A snapshot leaves the cycle running: another start is refused until stopped.
    EXPECT_TRUE(source.isRunning());
    source.startMonitoring(true);
    EXPECT_EQ(log.count(QStringLiteral("already running")), 1);
    source.stopMonitoring();
    EXPECT_FALSE(source.isRunning());

    SCOPED_TRACE("auto refresh");
    const QString serial = startDevice({QStringLiteral("--screen-size"), QStringLiteral("270x480")});
    source.setDeviceId(serial);
    source.startMonitoring(true);
    ASSERT_TRUE(waitUntil([&] { return rec.images.size() >= 5; }, 20000));
    source.stopMonitoring();
    // Frames captured before the stop and still queued are dropped.
    const qsizetype frames = rec.images.size();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(rec.images.size(), frames);
    EXPECT_EQ(rec.images.last().size(), QSize(270, 480));
    // Each is a new frame (the device's counter moves).
    for (qsizetype i = 2; i < frames; ++i)
        EXPECT_NE(rec.images.at(i), rec.images.at(i - 1)) << i;
    EXPECT_EQ(rec.failures, 0);

    source.startMonitoring(true);
    ASSERT_TRUE(waitUntil([&] { return rec.images.size() > frames; }, 15000));
    ASSERT_TRUE(env().removeDevice(serial));
    ASSERT_TRUE(waitUntil([&] { return rec.failures > 0; }, 15000));
    EXPECT_EQ(rec.failures, 1);
    EXPECT_FALSE(source.isRunning());
    EXPECT_EQ(rec.ids.last(), serial);
}
