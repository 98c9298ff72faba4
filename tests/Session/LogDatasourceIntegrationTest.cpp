// SPDX-License-Identifier: MIT
// LogDatasource against the real adb server and simulated devices: names from ps, the old-device ps
// form, a lost device, and a reconnect whose replay is dropped.
#include "support/AdbTestEnv.h"
#include "support/LogDatasourceRecorder.h"
#include "Session/LogDatasource.h"
#include "Log/LogLineParser.h"

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

QString key(const LogEntry &e)
{
    QStringList fields;
    for (LogEntry::Field f : {LogEntry::Time, LogEntry::Pid, LogEntry::Tid, LogEntry::Type, LogEntry::Name,
                              LogEntry::Text})
        fields.append(e.value(f));
    return fields.join(u'|');
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

    bool allNamed()
    {
        const QList<LogEntry> lines = deviceLines(ds->getDataAll());
        if (lines.size() < 20)
            return false;
        return std::all_of(lines.begin(), lines.end(), [](const LogEntry &e) { return !e.fieldIsEmpty(LogEntry::App); });
    }

    LogDatasourceRecorder recorder;
    std::unique_ptr<LogDatasource> ds;
};

TEST_F(LogDatasourceIntegrationTest, LinesArriveNamedFromTheProcessList)
{
    const QString serial = startDevice({"--rate", "100", "--buffer", "50", "--seed", "3"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return recorder.started == 1; }, 10000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return ds->logEventCount() >= 100; }, 20000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return allNamed(); }, 20000));
    EXPECT_TRUE(ds->addDashAforPS());
    EXPECT_EQ(recorder.failures(), 0);
}

TEST_F(LogDatasourceIntegrationTest, OldDeviceIsAskedWithoutDashA)
{
    const QString serial = startDevice({"--rate", "100", "--buffer", "50", "--seed", "4", "--old-device"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ds->addDashAforPS(); }, 20000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return allNamed(); }, 20000));
}

TEST_F(LogDatasourceIntegrationTest, LostDeviceStopsTheLogger)
{
    const QString serial = startDevice({"--rate", "50", "--buffer", "20"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return ds->logEventCount() >= 10; }, 20000));
    ASSERT_TRUE(env().stopDevice(serial));
    EXPECT_TRUE(QTest::qWaitFor([&] { return recorder.stopped == 1; }, 20000));
    EXPECT_FALSE(ds->isLogging());
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text), QStringLiteral("Disconnected %1").arg(serial));
}

// The device drops the server's connection and comes back; the controller starts again. The replay of
// the device's buffer is dropped up to the last time shown: in the end the log holds every line the
// device wrote, in order, and only the lines of that last time twice (they are kept by design).
TEST_F(LogDatasourceIntegrationTest, ReconnectDropsTheReplayedLines)
{
    const QString serial = startDevice({"--rate", "20", "--lines", "160", "--buffer", "300", "--seed", "5",
                                        "--drop-after", "3", "--return-after", "1"});
    ASSERT_FALSE(serial.isEmpty());
    ds->setDeviceId(serial);
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return recorder.stopped == 1; }, 20000)); // the drop
    ASSERT_TRUE(env().waitForState(serial, "device", 20000));
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return recorder.started == 2; }, 10000));

    // Wait until the device has written its last line and the datasource has it.
    LogIndexCounter counter;
    QList<LogEntry> reference;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            const auto dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
            reference.clear();
            for (const QString &l : dump.text().split(u'\n')) {
                QString line = l;
                if (line.endsWith(u'\r'))
                    line.chop(1);
                const LogEntry e = LogLineParser::parseThreadTimeLine(QStringView(line), LogLineFormatThreadTime, counter);
                if (!e.isNull() && !e.fieldIsEmpty(LogEntry::Time))
                    reference.append(e);
            }
            const QList<LogEntry> shown = deviceLines(ds->getDataAll());
            return reference.size() >= 300 && !shown.isEmpty() && key(shown.last()) == key(reference.last());
        },
        40000));

    const QList<LogEntry> all = ds->getDataAll();
    qsizetype disconnected = -1;
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (all[i].value(LogEntry::Text).startsWith(u"Disconnected"))
            disconnected = i;
    }
    ASSERT_GE(disconnected, 0);
    const QList<LogEntry> before = deviceLines(all.mid(0, disconnected));
    const QList<LogEntry> after = deviceLines(all.mid(disconnected + 1));
    ASSERT_FALSE(before.isEmpty());
    ASSERT_FALSE(after.isEmpty());
    EXPECT_GT(ds->numDuplicateRows(), 0u); // the replay older than the last time shown

    auto keys = [](const QList<LogEntry> &entries) {
        QStringList out;
        for (const LogEntry &e : entries)
            out.append(key(e));
        return out;
    };
    // The device keeps its last 300 lines; `ref` is that tail of everything it wrote.
    const QStringList ref = keys(reference), first = keys(before), second = keys(after);

    // The first session shows the device's log up to the drop: from the start of `ref` on, it is `ref`.
    const qsizetype overlap = first.indexOf(ref.first());
    ASSERT_GE(overlap, 0) << "the first session misses " << ref.first().toStdString();
    const QStringList firstPart = first.mid(overlap);
    ASSERT_EQ(firstPart, ref.mid(0, firstPart.size()));

    // The second session starts with the lines of the last time shown (kept again by design) and then
    // has every later line to the end: nothing lost, nothing else twice.
    const QString lastTime = before.last().value(LogEntry::Time);
    const qsizetype resume = std::find_if(reference.begin(), reference.end(),
                                          [&](const LogEntry &e) { return e.value(LogEntry::Time) == lastTime; }) -
                             reference.begin();
    ASSERT_LT(resume, reference.size());
    EXPECT_EQ(second, ref.mid(resume)) << "resumed at " << resume << " of " << ref.size();
    for (qsizetype i = resume; i < firstPart.size(); ++i)
        EXPECT_EQ(reference[i].value(LogEntry::Time), lastTime) << "shown twice: " << ref[i].toStdString();
}

} // namespace
