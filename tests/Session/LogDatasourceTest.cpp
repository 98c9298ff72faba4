// SPDX-License-Identifier: MIT
// The live session driven headless: reader callbacks are called directly from worker threads, the
// readers themselves are replaced by recorders, and the throttle reads a manual clock.
#include "Helpers/Clock.h"
#include "Helpers/Settings.h"
#include "Session/LogDatasource.h"
#include "support/ManualTime.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <QRandomGenerator>
#include <QStringDecoder>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

class RecordingDelegate : public LogDatasourceDelegate
{
public:
    void onLoggerStarted() override { ++started; }
    void onLoggerStopped() override { ++stopped; }
    void onLogUpdated() override { ++updated; }
    void onMultipleDevicesConnected() override { ++multipleDevices; }
    void onDeviceNotFound() override { ++deviceNotFound; }
    void onNoDeviceSelected() override { ++noDeviceSelected; }
    void adbNotRunningError(const AdbError &error) override
    {
        ++adbNotRunning;
        lastError = error;
    }
    void adbDeviceNotFound(const AdbError &error) override
    {
        ++adbNotFound;
        lastError = error;
    }

    // Written on the GUI thread only; atomics because a worker reads them to check its wait.
    std::atomic<int> started{0}, stopped{0}, updated{0}, multipleDevices{0}, deviceNotFound{0},
        noDeviceSelected{0}, adbNotRunning{0}, adbNotFound{0};
    AdbError lastError;
};

// What the datasource asked of the (replaced) readers.
struct ReaderLog
{
    std::mutex mutex;
    QList<bool> pidLookups; // addDashA of each lookup started
    QStringList logReaderStarts;
    int logReaderStops = 0;

    int lookupCount()
    {
        std::lock_guard lock(mutex);
        return int(pidLookups.size());
    }
};

QString line(const QString &time, int pid, int tid, const QString &level, const QString &tag, const QString &text)
{
    return QStringLiteral("01-23 %1 %2 %3 %4 %5: %6\n")
        .arg(time)
        .arg(pid, 5)
        .arg(tid, 5)
        .arg(level, tag, text);
}

// A process list longer than 99 characters: a toybox header plus the given processes.
QString psOutput(const QList<std::pair<int, QString>> &processes)
{
    QString out = QStringLiteral("USER           PID  PPID     VSZ    RSS WCHAN            ADDR S NAME\n");
    for (const auto &[pid, name] : processes)
        out += QStringLiteral("u0_a12 %1 567 1000 200 0 0 S %2\n").arg(pid).arg(name);
    return out;
}

class LogDatasourceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::maxBufferSize);
        makeDatasource();
    }

    void TearDown() override
    {
        ds.reset();
        Settings::remove(SettingsKey::maxBufferSize);
    }

    void makeDatasource()
    {
        ds.reset();
        ds = std::make_unique<LogDatasource>(&clock);
        ds->setDelegate(&delegate);
        LogDatasource::ReaderHooks hooks;
        hooks.startPidLookup = [this](bool addDashA, const QString &) {
            std::lock_guard lock(readers.mutex);
            readers.pidLookups.append(addDashA);
        };
        hooks.startLogReader = [this](const QString &device) {
            std::lock_guard lock(readers.mutex);
            readers.logReaderStarts.append(device);
        };
        hooks.stopLogReader = [this] {
            std::lock_guard lock(readers.mutex);
            ++readers.logReaderStops;
        };
        ds->setReaderHooks(std::move(hooks));
    }

    // Runs work on a thread of its own, as the readers' callbacks do, and serves the GUI thread until
    // it has finished (work may wait for the GUI thread).
    void onWorker(const std::function<void()> &work)
    {
        std::atomic<bool> done{false};
        std::thread worker([&] {
            work();
            done = true;
        });
        EXPECT_TRUE(QTest::qWaitFor([&] { return done.load(); }, 10000));
        worker.join();
    }

    void feed(const QStringList &lines)
    {
        onWorker([&] {
            for (const QString &l : lines)
                ds->logLineReceived(l);
        });
    }

    // Lets every notification queued for the GUI thread arrive.
    static void drainEvents()
    {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents();
    }

    QStringList texts(const QList<LogEntry> &entries)
    {
        QStringList out;
        for (const LogEntry &e : entries)
            out.append(e.value(LogEntry::Text));
        return out;
    }

    ManualClock clock{1'000'000};
    RecordingDelegate delegate;
    ReaderLog readers;
    std::unique_ptr<LogDatasource> ds;
};

TEST_F(LogDatasourceTest, ParsesLiveLinesIntoTheFullLog)
{
    feed({line("14:05:06.789", 1234, 1234, "I", "ActivityManager", "Start proc"),
          QStringLiteral("--------- beginning of main\n"), QStringLiteral("01-23 14:05:06.790  1234\n")});
    const QList<LogEntry> all = ds->getDataAll();
    ASSERT_EQ(all.size(), 2); // the truncated line yields no entry
    EXPECT_EQ(all[0].value(LogEntry::Time), "01-23 14:05:06.789");
    EXPECT_EQ(all[0].value(LogEntry::Pid), "1234");
    EXPECT_EQ(all[0].value(LogEntry::Tid), "-");
    EXPECT_EQ(all[0].value(LogEntry::Text), " Start proc"); // no line feed
    EXPECT_EQ(all[1].value(LogEntry::Text), "--------- beginning of main");
    EXPECT_LT(all[0].idx(), all[1].idx());
    EXPECT_EQ(ds->logEventCount(), 2u);
    // Without a filter the view is the full log.
    EXPECT_EQ(ds->getDataFiltered().size(), 2);
}

TEST_F(LogDatasourceTest, ReconnectDropsTheReplayUpToTheLastTimeShown)
{
    feed({line("10:00:00.000", 1, 1, "I", "T", "a"), line("10:00:01.000", 1, 1, "I", "T", "b"),
          line("10:00:02.000", 1, 1, "I", "T", "c")});
    EXPECT_FALSE(ds->checkDates()); // the first kept line ends the check
    EXPECT_EQ(ds->lastDateReceived(), "01-23 10:00:02.000");

    onWorker([&] { ds->logReaderStopped(); });
    EXPECT_TRUE(ds->checkDates());
    EXPECT_EQ(ds->numDuplicateRows(), 0u);
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.stopped == 1; }, 5000));

    // logcat replays its buffer: a and b are older than c and dropped; c itself is kept and ends the
    // check, so a later line with an older time passes again.
    feed({line("10:00:00.000", 1, 1, "I", "T", "a"), line("10:00:01.000", 1, 1, "I", "T", "b"),
          QStringLiteral("--------- beginning of main\n"), line("10:00:02.000", 1, 1, "I", "T", "c"),
          line("10:00:03.000", 1, 1, "I", "T", "d"), line("09:00:00.000", 1, 1, "I", "T", "old")});
    EXPECT_EQ(ds->numDuplicateRows(), 2u);
    EXPECT_FALSE(ds->checkDates());
    EXPECT_EQ(texts(ds->getDataAll()), QStringList({" a", " b", " c", "Disconnected", "--------- beginning of main",
                                                    " c", " d", " old"}));
}

TEST_F(LogDatasourceTest, NoLineIsDroppedAfterADeviceChange)
{
    ds->setDeviceId("A");
    feed({line("10:00:05.000", 1, 1, "I", "T", "a")});
    onWorker([&] { ds->logReaderStopped(); });
    EXPECT_TRUE(ds->checkDates());

    ds->setDeviceId("A"); // the same device again keeps the check
    EXPECT_TRUE(ds->checkDates());
    ds->setDeviceId("B");
    EXPECT_FALSE(ds->checkDates());
    feed({line("09:00:00.000", 1, 1, "I", "T", "older on B")});
    EXPECT_EQ(ds->numDuplicateRows(), 0u);
    EXPECT_EQ(texts(ds->getDataAll()).last(), " older on B");
    // The last date is not reset by clearing either.
    ds->clearLog();
    EXPECT_EQ(ds->lastDateReceived(), "01-23 09:00:00.000");
}

TEST_F(LogDatasourceTest, SecondNamelessLineOfAPidAsksForNames)
{
    feed({line("10:00:00.000", 42, 42, "I", "T", "first")});
    EXPECT_EQ(readers.lookupCount(), 0);
    EXPECT_EQ(ds->unknownPidCount(), 1);

    feed({line("10:00:00.001", 42, 42, "I", "T", "second")});
    ASSERT_EQ(readers.lookupCount(), 1);
    EXPECT_TRUE(readers.pidLookups[0]); // "-A" by default
    EXPECT_TRUE(ds->pidLookupRunning());

    // While a lookup runs, further requests are remembered, not started.
    feed({line("10:00:00.002", 42, 42, "I", "T", "third")});
    EXPECT_EQ(readers.lookupCount(), 1);

    clock.advanceMs(100);
    onWorker([&] { ds->pidReceived(psOutput({{42, "com.example.answer"}})); });
    // The remembered request starts when the answer is in.
    EXPECT_EQ(readers.lookupCount(), 2);
    for (const LogEntry &e : ds->getDataAll())
        EXPECT_EQ(e.value(LogEntry::App), "com.example.answer");
    EXPECT_EQ(ds->unknownPidCount(), 0);

    // A named pid's next line carries the name at once and asks nothing.
    onWorker([&] { ds->pidReceived(psOutput({{42, "com.example.answer"}})); });
    const int lookups = readers.lookupCount();
    feed({line("10:00:00.003", 42, 42, "I", "T", "fourth"), line("10:00:00.004", 42, 42, "I", "T", "fifth")});
    EXPECT_EQ(readers.lookupCount(), lookups);
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::App), "com.example.answer");
}

TEST_F(LogDatasourceTest, ShortProcessListFlipsTheDashAArgument)
{
    feed({line("10:00:00.000", 7, 7, "I", "T", "x"), line("10:00:00.001", 7, 7, "I", "T", "y")});
    ASSERT_EQ(readers.lookupCount(), 1);

    const QString ninetyNine = QStringLiteral("bad pid '-A'\n").leftJustified(99, u'.');
    ASSERT_EQ(ninetyNine.size(), 99);
    onWorker([&] { ds->pidReceived(ninetyNine); });
    EXPECT_FALSE(ds->addDashAforPS());
    ASSERT_EQ(readers.lookupCount(), 2);
    EXPECT_FALSE(readers.pidLookups[1]); // asked again without "-A"

    // Another short answer flips back: there is no limit on the retries.
    onWorker([&] { ds->pidReceived(QString()); });
    EXPECT_TRUE(ds->addDashAforPS());
    EXPECT_EQ(readers.lookupCount(), 3);

    // 100 characters are parsed as a process list.
    QString hundred = QStringLiteral("USER PID PPID VSIZE RSS WCHAN PC NAME\nroot 7 1 2 3 0 0 S sh\n");
    hundred = hundred.leftJustified(99, u' ') + u'\n';
    ASSERT_EQ(hundred.size(), 100);
    onWorker([&] { ds->pidReceived(hundred); });
    EXPECT_TRUE(ds->addDashAforPS());
    EXPECT_EQ(ds->appNameForPid("7"), "sh");
    EXPECT_EQ(readers.lookupCount(), 3);
    EXPECT_FALSE(ds->pidLookupRunning());
}

TEST_F(LogDatasourceTest, ProcessListLines)
{
    auto parse = [](const QString &l) { return ProcessNameMap::parsePsLine(l); };
    const auto named = parse("u0_a12 1234 567 1000 200 0 0 S com.example");
    ASSERT_TRUE(named);
    EXPECT_EQ(named->pid, "1234");
    EXPECT_EQ(named->name, "com.example");
    EXPECT_FALSE(parse("u0_a12 1234 567 1000 200 0 0 S <pre-initialized>"));
    EXPECT_FALSE(parse("a 12 b")); // fewer than 4 pieces
    EXPECT_FALSE(parse("a b c d")); // no integer piece
    // Runs of blanks give empty pieces; the name is the last piece, even an empty one.
    const auto padded = parse("root      1     0  init");
    ASSERT_TRUE(padded);
    EXPECT_EQ(padded->pid, "1");
    EXPECT_EQ(padded->name, "init");
    const auto leadingZero = parse("x 00 0 y"); // "00" is no integer, "0" is
    ASSERT_TRUE(leadingZero);
    EXPECT_EQ(leadingZero->pid, "0");

    // In a whole answer: header, "-" lines and a CR LF layout are skipped; "<pre-initialized>" is ignored.
    feed({line("10:00:00.000", 1234, 1234, "I", "T", "a"), line("10:00:00.001", 1234, 1235, "I", "T", "b"),
          line("10:00:00.002", 99, 99, "I", "T", "c")});
    const QString answer = QStringLiteral("USER PID PPID VSZ RSS WCHAN ADDR S NAME\r\n"
                                          "u0_a12 1234 567 1000 200 0 0 S com.example\r\n"
                                          "--- separator ---\r\n"
                                          "u0_a13 99 567 1000 200 0 0 S <pre-initialized>\r\n");
    ASSERT_GT(answer.size(), 99);
    onWorker([&] { ds->pidReceived(answer); });
    EXPECT_EQ(ds->appNameForPid("1234"), "com.example");
    EXPECT_EQ(ds->appNameForPid("99"), "");
    const QList<LogEntry> all = ds->getDataAll();
    EXPECT_EQ(all[0].value(LogEntry::App), "com.example");
    EXPECT_EQ(all[1].value(LogEntry::App), "com.example");
    EXPECT_EQ(all[2].value(LogEntry::App), "");
}

TEST_F(LogDatasourceTest, UnnamedPidsSeenBeforeTheLookupAreGivenUp)
{
    feed({line("10:00:00.000", 5, 5, "I", "T", "gone")}); // first seen at t0
    clock.advanceMs(1000);
    feed({line("10:00:00.001", 6, 6, "I", "T", "a"), line("10:00:00.002", 6, 6, "I", "T", "b")}); // lookup at t1
    ASSERT_EQ(readers.lookupCount(), 1);
    EXPECT_EQ(ds->unknownPidCount(), 2);

    onWorker([&] { ds->pidReceived(psOutput({{1, "init"}})); });
    // Pid 5 was first seen before the lookup started and is not in the answer: given up. Pid 6 was first
    // seen at the lookup's own start time, not earlier: it keeps waiting.
    EXPECT_EQ(ds->unknownPidCount(), 1);
    EXPECT_EQ(ds->getDataAll().first().value(LogEntry::App), "");
}

TEST_F(LogDatasourceTest, UserNamesWinAndSurviveReconnectAndClear)
{
    feed({line("10:00:00.000", 300, 300, "I", "T", "a")});
    ds->setAppName("Mine", "300");
    EXPECT_EQ(delegate.updated, 1);
    EXPECT_EQ(ds->getDataAll().first().value(LogEntry::App), "Mine");
    EXPECT_EQ(ds->unknownPidCount(), 0);

    onWorker([&] { ds->pidReceived(psOutput({{300, "com.device.name"}, {301, "other"}})); });
    EXPECT_EQ(ds->appNameForPid("300"), "Mine");
    EXPECT_EQ(ds->appNameForPid("301"), "other");

    onWorker([&] { ds->logReaderStopped(); });
    EXPECT_EQ(ds->appNameForPid("300"), "Mine");
    EXPECT_EQ(ds->appNameForPid("301"), ""); // the device's names are forgotten

    ds->clearLog();
    EXPECT_EQ(ds->logEventCount(), 0u);
    feed({line("10:00:01.000", 300, 300, "I", "T", "after clear")});
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::App), "Mine");
}

TEST_F(LogDatasourceTest, ClearLogAllowsANewLookup)
{
    feed({line("10:00:00.000", 8, 8, "I", "T", "a"), line("10:00:00.001", 8, 8, "I", "T", "b")});
    ASSERT_EQ(readers.lookupCount(), 1);
    // A failed lookup stays "running": nothing new is asked until the log is cleared.
    onWorker([&] { ds->pidFailedWithError(AdbError::logReaderError(2, "boom")); });
    feed({line("10:00:00.002", 8, 8, "I", "T", "c")});
    EXPECT_EQ(readers.lookupCount(), 1);
    ds->clearLog();
    EXPECT_FALSE(ds->pidLookupRunning());
    feed({line("10:00:00.003", 8, 8, "I", "T", "d")}); // pid 8 still waits from before the clear
    EXPECT_EQ(readers.lookupCount(), 2);
}

TEST_F(LogDatasourceTest, ThrottlesAnnouncementsByTheClock)
{
    QSignalSpy spy(ds.get(), &LogDatasource::logDataUpdated);
    QStringList burst;
    for (int i = 0; i < 10; ++i)
        burst.append(line(QStringLiteral("10:00:00.%1").arg(i, 3, 10, QChar(u'0')), 1, 1, "I", "T", "x"));

    feed(burst); // the first change goes out at once, the other nine wait
    drainEvents();
    EXPECT_EQ(spy.count(), 1);

    clock.advanceMs(250); // not more than 0.25 s: still waiting
    feed({line("10:00:01.000", 1, 1, "I", "T", "y")});
    drainEvents();
    EXPECT_EQ(spy.count(), 1);

    ds->onQueueCheckTimerTick(); // the trailing timer announces the rest
    drainEvents();
    EXPECT_EQ(spy.count(), 2);
    ds->onQueueCheckTimerTick(); // nothing pending: nothing to say
    drainEvents();
    EXPECT_EQ(spy.count(), 2);

    clock.advanceMs(251); // more than 0.25 s since the tick's announcement
    feed({line("10:00:02.000", 1, 1, "I", "T", "z")});
    drainEvents();
    EXPECT_EQ(spy.count(), 3);
}

TEST_F(LogDatasourceTest, PendingNotificationsAreCoalesced)
{
    QSignalSpy spy(ds.get(), &LogDatasource::logDataUpdated);
    // Called here on the GUI thread, so nothing is delivered in between: every line is announced (a second
    // apart), yet only one notification is pending at a time.
    for (int i = 0; i < 20; ++i) {
        clock.advanceMs(1000);
        ds->logLineReceived(line(QStringLiteral("10:00:%1.000").arg(i, 2, 10, QChar(u'0')), 1, 1, "I", "T", "x"));
    }
    drainEvents();
    EXPECT_EQ(spy.count(), 1);
    // Delivered: the next announcement posts a new one.
    clock.advanceMs(1000);
    ds->logLineReceived(line("10:00:30.000", 1, 1, "I", "T", "y"));
    drainEvents();
    EXPECT_EQ(spy.count(), 2);
    EXPECT_EQ(QString::fromLatin1(LogDatasource::VXB_ON_LOG_DATA_UPDATED), "VXB_ON_LOG_DATA_UPDATED");
}

TEST_F(LogDatasourceTest, NonMatchingLinesAnnounceNothingUnlessTheyPrune)
{
    Settings::setValue(SettingsKey::maxBufferSize, 1500);
    makeDatasource();
    EXPECT_EQ(ds->bufferCapacity(), 1500u);
    ds->startLogger(); // applies the capacity to the full log
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started == 1; }, 5000));
    EXPECT_EQ(ds->logDataCapacity(), 1500u);

    QSignalSpy updated(ds.get(), &LogDatasource::logDataUpdated);
    ds->setLogDataFilter(Filter::parse("type ==[cd] 'E'"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ds->logDataFilter().isNull(); }, 5000));
    drainEvents();
    updated.clear();

    QStringList quiet;
    for (int i = 0; i < 1000; ++i)
        quiet.append(line("10:00:00.000", 1, 1, "I", "T", QString::number(i)));
    ds->setAppName("named", "1"); // named: no lookups in the way
    feed(quiet);
    ds->onQueueCheckTimerTick();
    drainEvents();
    EXPECT_EQ(updated.count(), 0);
    EXPECT_EQ(ds->logEventCount(), 1000u);
    EXPECT_TRUE(ds->getDataFiltered().isEmpty());

    // Lines 1001..1501: the 1501st prunes a block of 1000 and is announced though it fails the filter.
    QStringList more;
    for (int i = 0; i < 501; ++i)
        more.append(line("10:00:00.000", 1, 1, "I", "T", QString::number(i)));
    feed(more);
    drainEvents();
    EXPECT_EQ(updated.count(), 1);
    EXPECT_EQ(ds->logEventCount(), 501u);
    ds->stopLogger();
}

TEST_F(LogDatasourceTest, BufferSizeSetting)
{
    Settings::setValue(SettingsKey::maxBufferSize, 0);
    makeDatasource();
    EXPECT_EQ(ds->bufferCapacity(), 55000u);
    Settings::setValue(SettingsKey::maxBufferSize, -5);
    makeDatasource();
    EXPECT_EQ(ds->bufferCapacity(), 55000u);
    Settings::setValue(SettingsKey::maxBufferSize, 70000);
    makeDatasource();
    EXPECT_EQ(ds->bufferCapacity(), 70000u);
    Settings::remove(SettingsKey::maxBufferSize);
    makeDatasource();
    EXPECT_EQ(ds->bufferCapacity(), 55000u);
}

TEST_F(LogDatasourceTest, FilterFillsTheViewAndFollowsNewLines)
{
    feed({line("10:00:00.000", 1, 1, "E", "T", "bad"), line("10:00:00.001", 1, 1, "I", "T", "fine"),
          line("10:00:00.002", 1, 1, "F", "T", "worse")});
    const int before = delegate.updated;
    ds->setLogDataFilter(Filter::parse("type IN[cd] 'E,F,A'"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.updated > before; }, 5000));
    EXPECT_EQ(texts(ds->getDataFiltered()), QStringList({" bad", " worse"}));

    feed({line("10:00:00.003", 1, 1, "A", "T", "assert"), line("10:00:00.004", 1, 1, "D", "T", "debug")});
    EXPECT_EQ(texts(ds->getDataFiltered()), QStringList({" bad", " worse", " assert"}));
    EXPECT_EQ(ds->getDataAll().size(), 5);

    const int mid = delegate.updated;
    ds->setLogDataFilter(Filter());
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.updated > mid; }, 5000));
    EXPECT_TRUE(ds->logDataFilter().isNull());
    EXPECT_EQ(ds->getDataFiltered().size(), 5);
}

TEST_F(LogDatasourceTest, CorruptFilterIsClearedAndReported)
{
    feed({line("10:00:00.000", 1, 1, "E", "T", "a")});
    ds->setLogDataFilter(Filter::parse("type ==[cd] 'E'"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return ds->getDataFiltered().size() == 1 && !ds->logDataFilter().isNull(); }, 5000));

    QSignalSpy corrupt(ds.get(), &LogDatasource::filterCorrupt);
    const Filter bad = Filter::parse("idx CONTAINS[cd] '1'");
    ASSERT_TRUE(bad.isValid());
    ds->setLogDataFilter(bad);
    ASSERT_TRUE(corrupt.wait(5000));
    const QList<QVariant> args = corrupt.takeFirst();
    EXPECT_EQ(args[0].toString(), "Filter is corrupt");
    EXPECT_EQ(args[1].toString(), "OK");
    EXPECT_FALSE(args[2].toString().isEmpty());
    EXPECT_TRUE(ds->logDataFilter().isNull());
    EXPECT_EQ(ds->getDataFiltered().size(), 1); // no filter: the whole log
}

TEST_F(LogDatasourceTest, FileContentReplacesTheLogUnbounded)
{
    feed({line("10:00:00.000", 1, 1, "I", "T", "live")});
    LogIndexCounter counter;
    QList<LogEntry> file;
    for (int i = 0; i < 60000; ++i)
        file.append(LogEntry::create(counter.getIndex(), {"", "", "1", "1", "I", "T", QString::number(i), ""}));
    const int before = delegate.updated;
    ds->setLogDataFromFile(file);
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.updated > before; }, 5000));
    EXPECT_EQ(ds->logDataCapacity(), 0u);
    EXPECT_EQ(ds->logEventCount(), 60000u);
    EXPECT_EQ(ds->getDataAll().first().value(LogEntry::Text), "0");
}

TEST_F(LogDatasourceTest, ReadTextFileClearsTheLogAndNumbersFromTheCounter)
{
    feed({line("10:00:00.000", 1, 1, "I", "T", "live")});
    const quint64 liveIdx = ds->getDataAll().first().idx();
    QTemporaryDir dir;
    QFile file(dir.filePath("saved.log"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i < 6; ++i)
        file.write(line(QStringLiteral("10:00:0%1.000").arg(i), 10, 11, "W", "Tag", QString::number(i)).toUtf8());
    file.close();

    const LogFileResult result = ds->readTextFile(file.fileName());
    ASSERT_TRUE(result.ok) << result.errorString.toStdString();
    EXPECT_EQ(result.format, LogLineFormatThreadTime);
    ASSERT_EQ(result.entries.size(), 6);
    EXPECT_GT(result.entries.first().idx(), liveIdx);
    EXPECT_EQ(ds->logEventCount(), 0u); // cleared; the caller hands the entries over
    ds->setLogDataFromFile(result.entries);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ds->logEventCount() == 6; }, 5000));
}

TEST_F(LogDatasourceTest, SystemMessagesWaitForTheAnnouncement)
{
    int seenByWorker = -1;
    onWorker([&] {
        ds->logMessage("Disconnected X");
        seenByWorker = delegate.updated; // logMessage returned: onLogUpdated has run
    });
    EXPECT_EQ(seenByWorker, 1);
    const LogEntry e = ds->getDataAll().last();
    EXPECT_EQ(e.value(LogEntry::App), "Quillfern");
    EXPECT_EQ(e.value(LogEntry::Type), "QF");
    EXPECT_EQ(e.value(LogEntry::Pid), "---");
    EXPECT_EQ(e.value(LogEntry::Tid), "---");
    EXPECT_EQ(e.value(LogEntry::Name), "---");
    EXPECT_EQ(e.value(LogEntry::Text), "Disconnected X");
    EXPECT_EQ(e.value(LogEntry::Time).size(), 23);

    // appendRow ignores a null entry; system messages bypass the filter.
    ds->appendRow(LogEntry());
    EXPECT_EQ(ds->logEventCount(), 1u);
}

TEST_F(LogDatasourceTest, StartAndStopAreIdempotent)
{
    EXPECT_EQ(ds->description(), "logDataSrouce: isLogging=No");
    ds->setDeviceId("emulator-5554");
    ds->startLogger();
    ds->startLogger();
    EXPECT_TRUE(ds->isLogging());
    EXPECT_EQ(ds->description(), "logDataSrouce: isLogging=Yes");
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started >= 1; }, 5000));
    {
        std::lock_guard lock(readers.mutex);
        EXPECT_EQ(readers.logReaderStarts, QStringList({"emulator-5554"}));
    }
    EXPECT_EQ(readers.lookupCount(), 1); // names are asked for at the start

    ds->stopLogger();
    ds->stopLogger();
    EXPECT_FALSE(ds->isLogging());
    EXPECT_TRUE(QTest::qWaitFor([&] {
        std::lock_guard lock(readers.mutex);
        return readers.logReaderStops == 1;
    }, 5000));
    QTest::qWait(0);
    EXPECT_EQ(delegate.started, 1);
}

TEST_F(LogDatasourceTest, StreamEndReportsOnceAndAddsAMessage)
{
    ds->setDeviceId("serial-1");
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started == 1; }, 5000));
    onWorker([&] { ds->logReaderStopped(); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.stopped == 1; }, 5000));
    EXPECT_FALSE(ds->isLogging());
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text), "Disconnected serial-1");
    // The user pressing Stop afterwards finds it stopped already.
    ds->stopLogger();
    EXPECT_FALSE(ds->isLogging());
}

TEST_F(LogDatasourceTest, ServerErrorsReachTheDelegate)
{
    ds->setDeviceId("serial-2");
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started == 1; }, 5000));

    AdbError several = AdbError::logReaderError(2, "error: more than one device/emulator");
    several.failureReason = "error: more than one device/emulator";
    onWorker([&] { ds->logReaderStoppedWithError(several); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.noDeviceSelected == 1 && delegate.stopped == 1; }, 5000));

    ds->startLogger();
    const AdbError down = AdbError::logReaderError(2, "Connection refused");
    onWorker([&] { ds->adbNotRunningError(down); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.adbNotRunning == 1; }, 5000));
    EXPECT_EQ(delegate.lastError, down);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ds->isLogging(); }, 5000));
    EXPECT_EQ(ds->deviceId(), "");
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text), "ADB not running. In terminal run \"ADB start-server\"");

    ds->setDeviceId("serial-3");
    ds->startLogger();
    onWorker([&] { ds->adbDeviceNotFound(AdbError::logReaderError(2, "device not found")); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.adbNotFound == 1 && !ds->isLogging(); }, 5000));
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text),
              "No Android device found. Make sure it is connected and developer mode is enabled.");
}

TEST_F(LogDatasourceTest, ProcessListErrorsAbortTheSession)
{
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started == 1; }, 5000));
    const QString several = QStringLiteral("header line that is long enough to be read as a process list.....\n"
                                           "error: more than one device and emulator\n");
    ASSERT_GT(several.size(), 99);
    onWorker([&] { ds->pidReceived(several); });
    EXPECT_FALSE(ds->isLogging());
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.multipleDevices == 1; }, 5000));
    EXPECT_TRUE(QTest::qWaitFor([&] {
        std::lock_guard lock(readers.mutex);
        return readers.logReaderStops == 1; // the stream is ended too
    }, 5000));

    ds->startLogger();
    const QString missing = QStringLiteral("header line that is long enough to be read as a process list..................\n"
                                           "error: device not found\n");
    ASSERT_GT(missing.size(), 99);
    onWorker([&] { ds->pidReceived(missing); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.deviceNotFound == 1; }, 5000));
    EXPECT_FALSE(ds->isLogging());
}

// Lines, process lists, names, filters and snapshots all at once; ThreadSanitizer watches this one.
TEST_F(LogDatasourceTest, ConcurrentUseKeepsTheLogConsistent)
{
    std::atomic<bool> linesDone{false};
    std::atomic<bool> psDone{false};
    std::thread lines([&] {
        for (int i = 0; i < 20000; ++i) {
            clock.advanceMs(1);
            ds->logLineReceived(line("10:00:00.000", 100 + i % 50, 1, i % 3 ? "I" : "E", "T", QString::number(i)));
        }
        linesDone = true;
    });
    std::thread ps([&] {
        for (int round = 0; round < 20; ++round) {
            QList<std::pair<int, QString>> procs;
            for (int p = 100; p < 150; ++p)
                procs.append({p, QStringLiteral("proc%1").arg(p)});
            ds->pidReceived(psOutput(procs));
        }
        psDone = true;
    });
    int round = 0;
    while (!linesDone || !psDone) {
        ds->setLogDataFilter(round++ % 2 ? Filter::parse("type ==[cd] 'E'") : Filter());
        ds->setAppName("user", "149");
        (void)ds->getDataAll();
        (void)ds->getDataFiltered();
        QTest::qWait(1);
    }
    lines.join();
    ps.join();
    // Equal times are never duplicates: every line is in.
    EXPECT_EQ(ds->logEventCount(), 20000u);
}

// Refiltering while lines stream: the lines that arrive between a job's snapshot and its commit are
// filtered again under the lock, so the view ends up exactly the matching part of the log.
TEST_F(LogDatasourceTest, RefilteringDuringAStreamLosesNoLine)
{
    const Filter errors = Filter::parse("type ==[cd] 'E'");
    ds->setAppName("one", "1"); // named: no lookups
    ds->setLogDataFilter(errors);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ds->logDataFilter().isNull(); }, 5000));

    const int before = delegate.updated;
    std::thread lines([&] {
        for (int i = 0; i < 30000; ++i)
            ds->logLineReceived(line("10:00:00.000", 1, 1, i % 2 ? "I" : "E", "T", QString::number(i)));
    });
    constexpr int Jobs = 8;
    for (int i = 0; i < Jobs; ++i) {
        ds->setLogDataFilter(errors);
        QTest::qWait(2);
    }
    lines.join();
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.updated == before + Jobs; }, 10000));

    QList<LogEntry> expected;
    for (const LogEntry &e : ds->getDataAll()) {
        if (e.value(LogEntry::Type) == "E")
            expected.append(e);
    }
    const QList<LogEntry> view = ds->getDataFiltered();
    ASSERT_EQ(view.size(), expected.size());
    EXPECT_EQ(view.size(), 15000);
    for (qsizetype i = 0; i < view.size(); ++i)
        ASSERT_TRUE(view[i].sameRecord(expected[i])) << i;
}

} // namespace

namespace {

// Every field of every entry, for comparing two logs.
QStringList dump(const QList<LogEntry> &entries)
{
    QStringList out;
    for (const LogEntry &e : entries) {
        QStringList fields;
        for (int f = 0; f < LogEntry::FieldCount; ++f)
            fields.append(e.value(LogEntry::Field(f)));
        out.append(fields.join(u'|'));
    }
    return out;
}

// Seeded threadtime-like lines with the awkward cases mixed in: invalid and cut UTF-8, non-ASCII
// text, CR LF, raw "-" lines, pids with leading zeros or letters, truncated lines.
QList<QByteArray> awkwardLines(int count, quint32 seed)
{
    QRandomGenerator rng(seed);
    const QList<QByteArray> pids{"42", "042", "7", "x9", "  42", "123456789012345678"};
    const QList<QByteArray> texts{"plain", "Gr\xc3\xbc\xc3\x9f" "e \xe6\x9d\xb1", "bad \xff byte", "cut \xe2\x82",
                                  "surrogate \xed\xa0\x80", "\xef\xbb\xbf" "bom", "{\"json\":1}"};
    QList<QByteArray> out;
    for (int i = 0; i < count; ++i) {
        const int ms = 100 + i;
        QByteArray l = "01-23 10:00:00." + QByteArray::number(ms).rightJustified(3, '0') + " " +
                       pids[rng.bounded(int(pids.size()))] + " " + QByteArray::number(rng.bounded(3) + 7) + " " +
                       "VDIWEF"[rng.bounded(6)] + " Tag: " + texts[rng.bounded(int(texts.size()))];
        switch (rng.bounded(8)) {
        case 0:
            l = "--------- beginning of " + QByteArray::number(i);
            break;
        case 1:
            l.truncate(rng.bounded(int(l.size())));
            break;
        case 2:
            l += '\r';
            break;
        default:
            break;
        }
        out.append(l + '\n');
    }
    return out;
}

} // namespace

TEST_F(LogDatasourceTest, ByteAndBulkFormsMakeTheSameEntriesAsTheTextForm)
{
    // The reader's bytes parsed directly, one line or a run of lines at a time, must give what
    // decoding them (absent when not UTF-8) and handing the text over gives: names from the process
    // map, numbering, the filtered view and the waiting nameless pids included.
    const QList<QByteArray> lines = awkwardLines(400, 5);
    LogDatasource textDs(&clock);
    LogDatasource byteDs(&clock);
    LogDatasource bulkDs(&clock);
    const QList<LogDatasource *> all{&textDs, &byteDs, &bulkDs};
    const Filter filter = Filter::parse(QStringLiteral("type IN 'W,E' OR text CONTAINS 'json' OR idx < 30"));
    ASSERT_TRUE(filter.isValid());
    for (LogDatasource *source : all) {
        source->setLogDataFilter(filter);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !source->logDataFilter().isNull(); }, 5000));
    }
    const QString names = psOutput({{42, "com.example.answer"}, {7, "com.seven"}}) +
                          QStringLiteral("u0_a1 042 1 1000 200 0 0 S com.zero.two\n");
    onWorker([&] {
        for (LogDatasource *source : all)
            source->pidReceived(names);
        QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless |
                                                            QStringConverter::Flag::ConvertInitialBom);
        for (const QByteArray &l : lines) {
            decoder.resetState();
            const QString text = decoder.decode(l);
            textDs.logLineReceived(decoder.hasError() ? std::nullopt : std::optional<QString>(text));
            byteDs.logLineDataReceived(l);
        }
        QRandomGenerator rng(11);
        for (qsizetype i = 0; i < lines.size();) {
            QByteArray run;
            for (qsizetype n = rng.bounded(1, 60); n > 0 && i < lines.size(); --n)
                run += lines[i++];
            bulkDs.logLinesDataReceived(run);
        }
    });
    const QStringList expected = dump(textDs.getDataAll());
    EXPECT_GT(expected.size(), 150); // most lines yield an entry
    EXPECT_TRUE(expected.join(u'\n').contains(QStringLiteral("com.zero.two")));
    const QStringList expectedView = dump(textDs.getDataFiltered());
    EXPECT_GT(expectedView.size(), 30);
    EXPECT_LT(expectedView.size(), expected.size());
    for (LogDatasource *source : {&byteDs, &bulkDs}) {
        EXPECT_EQ(dump(source->getDataAll()), expected);
        EXPECT_EQ(dump(source->getDataFiltered()), expectedView);
        EXPECT_EQ(source->unknownPidCount(), textDs.unknownPidCount());
    }
}

TEST_F(LogDatasourceTest, BulkLinesDropTheReplayAndAnnounceOnce)
{
    feed({line("10:00:00.000", 1, 1, "I", "T", "a"), line("10:00:01.000", 1, 1, "I", "T", "b")});
    onWorker([&] { ds->logReaderStopped(); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.stopped == 1; }, 5000));
    drainEvents();
    clock.advanceMs(1000);
    QSignalSpy spy(ds.get(), &LogDatasource::logDataUpdated);
    // The replay and the new lines in one run: the replayed older line goes, the rest stays in order.
    const QString run = line("10:00:00.000", 1, 1, "I", "T", "a") + line("10:00:01.000", 1, 1, "I", "T", "b") +
                        line("10:00:02.000", 1, 1, "I", "T", "c") + line("09:00:00.000", 1, 1, "I", "T", "old");
    onWorker([&] { ds->logLinesDataReceived(run.toUtf8()); });
    EXPECT_EQ(ds->numDuplicateRows(), 1u);
    EXPECT_EQ(texts(ds->getDataAll()), QStringList({" a", " b", "Disconnected", " b", " c", " old"}));
    drainEvents();
    EXPECT_EQ(spy.count(), 1); // one announcement for the whole run
}

TEST_F(LogDatasourceTest, NamesOfTheLinePathFollowEveryChangeOfTheMap)
{
    // The line path remembers names per thread; a change of the map must show on the very next line,
    // and two datasources on one thread must not see each other's names.
    LogDatasource other(&clock);
    auto appOf = [](LogDatasource &d) { return d.getDataAll().last().value(LogEntry::App); };
    const QByteArray l42 = line("10:00:00.000", 42, 42, "I", "T", "x").toUtf8();
    onWorker([&] {
        ds->pidReceived(psOutput({{42, "device.name"}}));
        other.pidReceived(psOutput({{42, "other.name"}}));
        ds->logLineDataReceived(l42);
        EXPECT_EQ(appOf(*ds), "device.name");
        other.logLineDataReceived(l42);
        EXPECT_EQ(appOf(other), "other.name");
        ds->logLineDataReceived(l42);
        EXPECT_EQ(appOf(*ds), "device.name");
    });
    ds->setAppName(QStringLiteral("user.name"), QStringLiteral("42"));
    onWorker([&] {
        ds->logLineDataReceived(l42);
        EXPECT_EQ(appOf(*ds), "user.name");
        other.logLineDataReceived(l42);
        EXPECT_EQ(appOf(other), "other.name");
        other.logReaderStopped(); // forgets the device's names
    });
    drainEvents();
    onWorker([&] {
        other.logLineDataReceived(l42);
        EXPECT_EQ(appOf(other), "");
        ds->logLineDataReceived(l42);
        EXPECT_EQ(appOf(*ds), "user.name");
    });
}
