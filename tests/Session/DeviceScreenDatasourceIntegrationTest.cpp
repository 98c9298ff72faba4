// SPDX-License-Identifier: MIT
// Screenshots of a simulated device through the real adb server.
#include "Session/DeviceScreenDatasource.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"
#include "support/LogCapture.h"

#include <QCoreApplication>

namespace {

struct ScreenRecorder : DeviceScreenDatasourceDelegate
{
    void onScreenUpdate(const QString &deviceId, const QImage &screen) override
    {
        EXPECT_TRUE(isMainThreadNow());
        ids.append(deviceId);
        images.append(screen);
    }
    void onScreenUpdateFailedWithError(const std::optional<AdbError> &, const QString &deviceId) override
    {
        EXPECT_TRUE(isMainThreadNow());
        ids.append(deviceId);
        ++failures;
    }
    static bool isMainThreadNow() { return QThread::currentThread() == QCoreApplication::instance()->thread(); }

    QStringList ids;
    QList<QImage> images;
    int failures = 0;
};

class DeviceScreenDatasourceTest : public AdbTest
{
protected:
    void prepare(const QString &serial)
    {
        source.setConnectionSettings(env().connectionSettings());
        source.setDeviceId(serial);
        source.setDelegate(&rec);
    }
    ScreenRecorder rec;
    DeviceScreenDatasource source;
};

} // namespace

TEST_F(DeviceScreenDatasourceTest, SnapshotDecodesWithAndWithoutTheCrLfTranslation)
{
    for (const char *crlf : {"", "--crlf"}) {
        SCOPED_TRACE(crlf);
        QStringList options = {QStringLiteral("--screen-size"), QStringLiteral("540x1200")};
        if (*crlf)
            options.append(QString::fromLatin1(crlf));
        const QString serial = startDevice(options);
        ScreenRecorder fresh;
        rec = fresh;
        prepare(serial);
        LogCapture log;
        source.startMonitoring(false);
        ASSERT_TRUE(waitUntil([&] { return !rec.images.isEmpty(); }, 15000));
        EXPECT_EQ(rec.images.first().size(), QSize(540, 1200));
        EXPECT_EQ(rec.ids, QStringList({serial}));
        // A snapshot leaves the cycle running: another start is refused until stopped.
        EXPECT_TRUE(source.isRunning());
        source.startMonitoring(true);
        EXPECT_EQ(log.count(QStringLiteral("already running")), 1);
        source.stopMonitoring();
        EXPECT_FALSE(source.isRunning());
        QCoreApplication::sendPostedEvents();
        EXPECT_EQ(rec.images.size(), 1);
    }
}

TEST_F(DeviceScreenDatasourceTest, AutoRefreshDeliversNewFramesUntilStoppedOrTheDeviceGoesAway)
{
    const QString serial = startDevice({QStringLiteral("--screen-size"), QStringLiteral("270x480")});
    prepare(serial);
    source.startMonitoring(true);
    ASSERT_TRUE(waitUntil([&] { return rec.images.size() >= 4; }, 20000));
    source.stopMonitoring();
    QCoreApplication::sendPostedEvents();
    const qsizetype frames = rec.images.size();
    // Each is a new frame (the device's counter moves).
    for (qsizetype i = 1; i < frames; ++i)
        EXPECT_NE(rec.images.at(i), rec.images.at(i - 1)) << i;
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(rec.images.size(), frames);
    EXPECT_EQ(rec.failures, 0);

    // A capture from a device that went away stops monitoring.
    source.startMonitoring(true);
    ASSERT_TRUE(waitUntil([&] { return rec.images.size() > frames; }, 15000));
    ASSERT_TRUE(env().removeDevice(serial));
    ASSERT_TRUE(waitUntil([&] { return rec.failures > 0; }, 15000));
    EXPECT_EQ(rec.failures, 1);
    EXPECT_FALSE(source.isRunning());
    EXPECT_EQ(rec.ids.last(), serial);
}
