// SPDX-License-Identifier: MIT
// LogDatasource against the real adb server and simulated devices: names from ps, the old-device ps
// form, a lost device and names after a failed lookup, and reconnects whose replay is dropped.
#include "support/AdbTestEnv.h"
#include "support/LogDatasourceRecorder.h"
#include "support/ManualTime.h"
#include "Session/LogDatasource.h"

#include <QTest>

namespace {

// The device's own lines: entries with a time (system messages and logcat's "---" separators left out).
QList<LogEntry> deviceLines(const QList<LogEntry> &entries)
{
    QList<LogEntry> out;
    for (const LogEntry &e : entries) {
        if (e.value(LogEntry::Type) != "QF" && !e.fieldIsEmpty(LogEntry::Time))
            out.append(e);
    }
    return out;
}

class LogDatasourceIntegrationTest : public AdbTest
{
protected:
    void SetUp() override
    {
        AdbTest::SetUp();
        ds = std::make_unique<LogDatasource>();
        ds->setConnectionSettings(env().connectionSettings());
        ds->setDelegate(&recorder);
    }
    void TearDown() override
    {
        if (ds)
            ds->stopLogger();
        ds.reset();
        AdbTest::TearDown();
    }

    // At least 20 device lines from `from` on, every one named.
    bool allNamed(qsizetype from = 0)
    {
        const QList<LogEntry> lines = deviceLines(ds->getDataAll().mid(from));
        return lines.size() >= 20 && std::all_of(lines.begin(), lines.end(),
                                                 [](const LogEntry &e) { return !e.fieldIsEmpty(LogEntry::App); });
    }

    ManualClock clock{1'000'000}; // for tests that make their own datasource on it
    LogDatasourceRecorder recorder;
    std::unique_ptr<LogDatasource> ds;
};

TEST_F(LogDatasourceIntegrationTest, OldDeviceIsAskedWithoutDashA)
{
    const QString serial = startDevice({"--rate", "100", "--buffer", "50", "--seed", "4", "--old-device"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ds->addDashAforPS(); }, 20000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return allNamed(); }, 20000));
}

// Lines arrive named from "ps -A"; a lost device stops the logger; a lookup that fails while the device
// is away (the controller's retry) ends; once the device is back the next lookup names the new lines.
TEST_F(LogDatasourceIntegrationTest, NamesComeBackAfterALookupFailedWhileTheDeviceWasAway)
{
    ds = std::make_unique<LogDatasource>(&clock);
    ds->setConnectionSettings(env().connectionSettings());
    ds->setDelegate(&recorder);
    const QString serial = startDevice({"--rate", "50", "--buffer", "20"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return allNamed(); }, 20000));
    ASSERT_TRUE(env().stopDevice(serial));
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.stopped == 1; }, 20000));
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text), QStringLiteral("Disconnected %1").arg(serial));

    ds->startLogger(); // a retry while the device is away: stream and lookup both fail
    EXPECT_TRUE(ds->pidLookupRunning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.stopped == 2 && !ds->pidLookupRunning(); }, 20000));

    ASSERT_TRUE(env().restartDevice(serial));
    const qsizetype before = ds->getDataAll().size();
    clock.advanceMs(5000);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return allNamed(before); }, 20000));
}

// A sequence-numbered device drops the server's connection 20 times and comes back each time; the
// datasource is started again as the controller would. Every number arrives exactly once, although
// several lines share each time stamp.
TEST_F(LogDatasourceIntegrationTest, TwentyReconnectsLoseNoLineAndShowNoneTwice)
{
    constexpr int Cycles = 20;
    const QString serial =
        startDevice({"--sequence", "--seed", "7", "--rate", "300", "--buffer", "1000", "--drop-after", "0.4",
                     "--return-after", "0.05", "--drop-cycles", QString::number(Cycles)});
    ASSERT_FALSE(serial.isEmpty());
    const auto drops = [&] { return env().deviceLog(serial).count(QLatin1String("dropping the connection")); };
    const auto seqs = [&] {
        QList<qint64> out;
        for (const LogEntry &e : deviceLines(ds->getDataAll()))
            out.append(e.value(LogEntry::Text).trimmed().mid(4).toLongLong());
        return out;
    };
    // Restarts the stream whenever it ended and the device is listed again.
    const auto streamUntil = [&](const std::function<bool()> &done) {
        return QTest::qWaitFor(
            [&] {
                if (!ds->isLogging() && env().deviceState(serial) == QLatin1String("device"))
                    ds->startLogger();
                return done();
            },
            90000);
    };
    ds->setDeviceId(serial);
    ASSERT_TRUE(streamUntil([&] { return drops() >= Cycles; }));
    const qint64 atLastDrop = seqs().value(seqs().size() - 1, 0);
    ASSERT_TRUE(streamUntil([&] { return seqs().value(seqs().size() - 1, 0) >= atLastDrop + 300; }));

    const QList<qint64> shown = seqs();
    EXPECT_GE(recorder.stopped, Cycles);
    // The device's buffer may have moved on before the first connection: count from the first shown.
    for (qsizetype i = 0; i < shown.size(); ++i)
        ASSERT_EQ(shown[i], shown[0] + i) << "position " << i << " of " << shown.size();
}

} // namespace
