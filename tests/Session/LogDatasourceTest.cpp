// SPDX-License-Identifier: MIT
// The datasource's wiring and threads: reader callbacks called from worker threads, the readers
// replaced by recorders, a manual clock. The log store and the process namer have direct tests.
#include "Session/LogDatasource.h"
#include "support/AdbRecorders.h"
#include "support/LogDatasourceRecorder.h"
#include "support/ManualTime.h"
#include "support/SessionTestData.h"
#include "support/TestEntries.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

namespace {

constexpr auto line = &logcatLine;

// Every field of every entry, its number included, for comparing two logs.
QStringList dump(const QList<LogEntry> &entries)
{
    QStringList out;
    for (const LogEntry &e : entries)
        out.append(QString::number(e.idx()) + u'|' + fieldsOf(e));
    return out;
}

// Seeded threadtime-like lines with the awkward cases mixed in: invalid and cut UTF-8, non-ASCII
// text, CR LF, raw "-" lines, pids with leading zeros or letters, truncated lines.
QList<QByteArray> awkwardLines(int count, quint32 seed)
{
    QRandomGenerator rng(seed);
    const QList<QByteArray> pids{"42", "042", "7", "x9", "  42", "123456789012345678"};
    const QList<QByteArray> texts{"plain",        "Gr\u00fc\u00dfe \u6771", "bad \xff byte",
                                  "cut \xe2\x82", "surrogate \xed\xa0\x80", "\ufeffbom",
                                  "{\"json\":1}"};
    QList<QByteArray> out;
    for (int i = 0; i < count; ++i) {
        const int ms = 100 + i;
        QByteArray l = "01-23 10:00:00." + QByteArray::number(ms).rightJustified(3, '0') + " " +
                       pids[rng.bounded(int(pids.size()))] + " " + QByteArray::number(rng.bounded(3) + 7) + " " +
                       "VDIWEF"[rng.bounded(6)] + " Tag: " + texts[rng.bounded(int(texts.size()))];
        const int kind = rng.bounded(8);
        if (kind == 0)
            l = "--------- beginning of " + QByteArray::number(i);
        else if (kind == 1)
            l.truncate(rng.bounded(int(l.size())));
        else if (kind == 2)
            l += '\r';
        out.append(l + '\n');
    }
    return out;
}

class LogDatasourceTest : public ::testing::Test
{
protected:
    void SetUp() override { ds = makeDatasource(); }

    std::unique_ptr<LogDatasource> makeDatasource(quint64 capacity = BoundedBuffer::DefaultCapacity)
    {
        auto d = std::make_unique<LogDatasource>(&clock, capacity);
        d->setDelegate(&delegate);
        d->setReaderHooks({[this](const QString &device) { readers.add("log " + device); },
                           [this] { readers.add("stop"); },
                           [this](bool dashA, const QString &) { readers.add(dashA ? "ps -A" : "ps"); }});
        return d;
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
    void feedRun(const QStringList &lines)
    {
        onWorker([&] { ds->logLinesDataReceived(lines.join(QString()).toUtf8()); });
    }

    // Lets every notification queued for the GUI thread arrive.
    static void drainEvents()
    {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents();
    }

    // Sets a filter and waits for the job that applies it.
    void filterBy(const Filter &filter)
    {
        const int before = delegate.updated;
        ds->setLogDataFilter(filter);
        EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.updated > before; }, 5000));
    }

    ManualClock clock{1'000'000};
    LogDatasourceRecorder delegate;
    AdbEventLog readers; // what the datasource asked of the (replaced) readers
    std::unique_ptr<LogDatasource> ds;
};

TEST_F(LogDatasourceTest, LiveLinesAreParsedIntoTheFullLog)
{
    feed({line("14:05:06.789", 1234, 1234, "I", "ActivityManager", "Start proc"),
          QStringLiteral("--------- beginning of main\n"), QStringLiteral("01-23 14:05:06.790  1234\n")});
    const QList<LogEntry> all = ds->getDataAll();
    ASSERT_EQ(all.size(), 2); // the truncated line yields no entry
    EXPECT_EQ(all[0].value(LogEntry::Tid), "-");
    EXPECT_EQ(textsOf(all), QStringList({" Start proc", "--------- beginning of main"})); // no line feeds
    EXPECT_LT(all[0].idx(), all[1].idx());
    EXPECT_EQ(ds->getDataFiltered().size(), 2); // without a filter the view is the full log
}

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
    for (LogDatasource *source : all) {
        source->setLogDataFilter(filter);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !source->logDataFilter().isNull(); }, 5000));
    }
    const QString names = psOutput({{42, "com.example.answer"}, {7, "com.seven"}}) +
                          QStringLiteral("u0_a1 042 1 1000 200 0 0 S com.zero.two\n");
    onWorker([&] {
        for (LogDatasource *source : all)
            source->pidReceived(names);
        QStringDecoder decoder(QStringConverter::Utf8,
                               QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
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

TEST_F(LogDatasourceTest, NamelessPidsAreLookedUpAndNamed)
{
    feed({line("10:00:00.000", 42, 42, "I", "T", "first"), line("10:00:00.001", 42, 42, "I", "T", "second")});
    ASSERT_EQ(readers.events(), QStringList{"ps -A"});     // the second nameless line asks
    onWorker([&] { ds->pidReceived(QString(99, u'.')); }); // short: asked again without "-A"
    EXPECT_EQ(readers.events(), QStringList({"ps -A", "ps"}));

    onWorker([&] { ds->pidReceived(psOutput({{42, "com.example.answer"}})); });
    feedRun({line("10:00:00.003", 42, 42, "I", "T", "a"), line("10:00:00.004", 42, 42, "I", "T", "b")});
    for (const LogEntry &e : ds->getDataAll())
        EXPECT_EQ(e.value(LogEntry::App), "com.example.answer");
    EXPECT_EQ(readers.size(), 2); // named lines ask nothing

    // The user's name reaches the waiting entries at once, announced; clearing the log ends a lookup
    // that never answered.
    feed({line("10:00:00.005", 8, 8, "I", "T", "a"), line("10:00:00.006", 8, 8, "I", "T", "b")});
    const int updates = delegate.updated;
    ds->setAppName("Mine", "8");
    EXPECT_EQ(delegate.updated, updates + 1);
    EXPECT_EQ(ds->getDataAll().last().value(LogEntry::App), "Mine");
    EXPECT_EQ(ds->unknownPidCount(), 0);
    ds->clearLog();
    EXPECT_FALSE(ds->pidLookupRunning());
}

// Every nameless line that asks counts, also inside one run: a line asking while the lookup started by
// an earlier line of the run is running gets the follow-up lookup.
TEST_F(LogDatasourceTest, ALineAskingDuringALookupGetsAFollowUpInARun)
{
    for (const bool bulk : {false, true}) {
        SCOPED_TRACE(bulk ? "run" : "line by line");
        ds = makeDatasource();
        const qsizetype before = readers.size();
        const QStringList lines{line("10:00:00.000", 42, 42, "I", "T", "a"),
                                line("10:00:00.001", 42, 42, "I", "T", "b"),
                                line("10:00:00.002", 42, 42, "I", "T", "c")};
        bulk ? feedRun(lines) : feed(lines);
        ASSERT_EQ(readers.size(), before + 1);
        onWorker([&] { ds->pidReceived(psOutput({{1, "init"}})); });
        EXPECT_EQ(readers.size(), before + 2);
    }
}

TEST_F(LogDatasourceTest, AnnouncementsAreThrottledAndCoalesced)
{
    QSignalSpy spy(ds.get(), &LogDatasource::logDataUpdated);
    // Called here on the GUI thread, so nothing is delivered in between: every line is announced (a
    // second apart), yet only one notification is pending at a time.
    for (int i = 0; i < 20; ++i) {
        clock.advanceMs(1000);
        ds->logLineReceived(line(QStringLiteral("10:00:%1.000").arg(i, 2, 10, QChar(u'0')), 1, 1, "I", "T", "x"));
    }
    drainEvents();
    EXPECT_EQ(spy.count(), 1);
    // Within 0.25 s a change waits for the trailing timer.
    ds->logLineReceived(line("10:00:30.000", 1, 1, "I", "T", "y"));
    drainEvents();
    EXPECT_EQ(spy.count(), 1);
    ds->onQueueCheckTimerTick();
    drainEvents();
    EXPECT_EQ(spy.count(), 2);
}

TEST_F(LogDatasourceTest, FilterFillsTheViewAndFollowsNewLines)
{
    feed({line("10:00:00.000", 1, 1, "E", "T", "bad"), line("10:00:00.001", 1, 1, "I", "T", "fine"),
          line("10:00:00.002", 1, 1, "F", "T", "worse")});
    filterBy(Filter::parse("type IN[cd] 'E,F,A'"));
    EXPECT_EQ(textsOf(ds->getDataFiltered()), QStringList({" bad", " worse"}));
    feed({line("10:00:00.003", 1, 1, "A", "T", "assert"), line("10:00:00.004", 1, 1, "D", "T", "debug")});
    EXPECT_EQ(textsOf(ds->getDataFiltered()), QStringList({" bad", " worse", " assert"}));

    // A filter that cannot be evaluated is dropped and reported.
    QSignalSpy corrupt(ds.get(), &LogDatasource::filterCorrupt);
    ds->setLogDataFilter(Filter::parse("idx CONTAINS[cd] '1'"));
    ASSERT_TRUE(corrupt.wait(5000));
    const QList<QVariant> args = corrupt.takeFirst();
    EXPECT_EQ(args[0].toString() + u'|' + args[1].toString(), "Filter is corrupt|OK");
    EXPECT_FALSE(args[2].toString().isEmpty());
    EXPECT_TRUE(ds->logDataFilter().isNull());
    EXPECT_EQ(ds->getDataFiltered().size(), 5); // no filter: the whole log

    filterBy(Filter::parse("type ==[cd] 'E'"));
    filterBy(Filter());
    EXPECT_TRUE(ds->logDataFilter().isNull());
    EXPECT_EQ(ds->getDataFiltered().size(), 5);
}

// Typing into the search box over a large file: each key asks for a whole-log pass; a newer one ends
// the pass still running, so only the last shows (announced once or, if the first ended, twice).
TEST_F(LogDatasourceTest, ANewerFilterCancelsThePassStillRunning)
{
    ds->setLogDataFromFile(testEntries(1, 300000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return ds->logEventCount() == 300000; }, 5000));
    drainEvents();
    const int before = delegate.updated;
    const QString typed = "123456";
    for (qsizetype n = 1; n <= typed.size(); ++n)
        ds->setLogDataFilter(Filter::parse(QStringLiteral("text CONTAINS[cd] '%1'").arg(typed.left(n))));
    ASSERT_TRUE(QTest::qWaitFor([&] { return ds->getDataFiltered().size() == 1; }, 10000));
    drainEvents();
    EXPECT_LE(delegate.updated - before, 2);
    EXPECT_EQ(textsOf(ds->getDataFiltered()), QStringList{" message 123456"});
}

TEST_F(LogDatasourceTest, FilesReplaceTheLogAndNumberFromTheCounter)
{
    feed({line("10:00:00.000", 1, 1, "I", "T", "live")});
    const quint64 liveIdx = ds->getDataAll().first().idx();
    QTemporaryDir dir;
    QString saved;
    for (int i = 0; i < 6; ++i)
        saved += line(QStringLiteral("10:00:0%1.000").arg(i), 10, 11, "W", "Tag", QString::number(i));
    const LogFileResult result = ds->readTextFile(writeTestFile(dir.filePath("saved.log"), saved.toUtf8()));
    ASSERT_TRUE(result.ok) << result.errorString.toStdString();
    EXPECT_EQ(result.format, LogLineFormatThreadTime);
    ASSERT_EQ(result.entries.size(), 6);
    EXPECT_GT(result.entries.first().idx(), liveIdx);
    EXPECT_EQ(ds->logEventCount(), 0u); // cleared; the caller hands the entries over

    ds->setLogDataFromFile(result.entries);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ds->logEventCount() == 6; }, 5000));
    EXPECT_EQ(ds->getDataAll().first().value(LogEntry::Text), " 0");
}

// Start and Stop twice each act once; the stream's end reports once, and the next connection's replay
// of the device's buffer drops what was shown, announced once.
TEST_F(LogDatasourceTest, SessionsStartAndStopOnceAndDropTheReplayOfTheNext)
{
    ds = makeDatasource(1500);
    EXPECT_EQ(ds->description(), "logDataSrouce: isLogging=No");
    ds->setDeviceId("serial-1");
    ds->startLogger();
    ds->startLogger();
    EXPECT_EQ(ds->description(), "logDataSrouce: isLogging=Yes");
    EXPECT_EQ(ds->logDataCapacity(), 1500u); // the session's capacity, as given
    ds->stopLogger();
    ds->stopLogger();
    EXPECT_FALSE(ds->isLogging());
    EXPECT_EQ(readers.events(), QStringList({"ps -A", "log serial-1", "stop"})); // names are asked for at the start
    drainEvents();
    EXPECT_EQ(delegate.started, 1);

    SCOPED_TRACE("the stream ends");
    ds->startLogger();
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.started == 2; }, 5000));
    feed({line("10:00:00.000", 1, 1, "I", "T", "a"), line("10:00:01.000", 1, 1, "I", "T", "b")});
    onWorker([&] { ds->pidReceived(psOutput({{1, "one"}})); });
    // A system message is written by the reader's thread, which goes on once it is announced.
    const int updates = delegate.updated;
    int seenByWorker = -1;
    onWorker([&] {
        ds->logReaderStopped();
        seenByWorker = delegate.updated;
    });
    EXPECT_GT(seenByWorker, updates);
    const LogEntry message = ds->getDataAll().last();
    EXPECT_EQ(fieldsOf(message).section(u'|', 1), "Quillfern|---|---|QF|---|Disconnected serial-1|");
    EXPECT_EQ(message.value(LogEntry::Time).size(), 23);
    EXPECT_TRUE(QTest::qWaitFor([&] { return delegate.stopped == 1; }, 5000));
    EXPECT_FALSE(ds->isLogging());
    EXPECT_EQ(ds->appNameForPid("1"), ""); // the device's names are forgotten
    ds->appendRow(LogEntry());             // ignored

    drainEvents();
    clock.advanceMs(1000);
    QSignalSpy spy(ds.get(), &LogDatasource::logDataUpdated);
    feedRun({line("10:00:00.000", 1, 1, "I", "T", "a"), line("10:00:01.000", 1, 1, "I", "T", "b"),
             line("10:00:02.000", 1, 1, "I", "T", "c")});
    EXPECT_EQ(ds->numDuplicateRows(), 2u);
    EXPECT_EQ(textsOf(ds->getDataAll()), QStringList({" a", " b", "Disconnected serial-1", " c"}));
    drainEvents();
    EXPECT_EQ(spy.count(), 1);
}

// Every failure ends the session and is reported once; the reader's go through the stream's end.
TEST_F(LogDatasourceTest, FailuresEndTheSessionAndReachTheDelegate)
{
    AdbError several = AdbError::logReaderError(2, "error: more than one device/emulator");
    several.failureReason = "error: more than one device/emulator";
    const AdbError down = AdbError::logReaderError(2, "Connection refused");
    const AdbError gone = AdbError::logReaderError(2, "device not found");
    const QString multiple = psOutput({{1, "init"}}) + "error: more than one device and emulator\n";
    const QString notFound = psOutput({{1, "init"}}) + "error: device not found\n";
    const struct
    {
        std::function<void(LogDatasource &)> fail;
        std::atomic<int> LogDatasourceRecorder::*reported;
        QString message; // the log's last line afterwards; empty: not checked
        bool forgetsDevice;
        int readerStops; // the stream is ended here, unless it ended by itself
    } cases[] = {
        {[&](LogDatasource &d) { d.logReaderStoppedWithError(several); }, &LogDatasourceRecorder::noDeviceSelected,
         "Disconnected serial", false, 0},
        {[&](LogDatasource &d) { d.adbNotRunningError(down); }, &LogDatasourceRecorder::adbNotRunning,
         "ADB not running. In terminal run \"ADB start-server\"", true, 1},
        {[&](LogDatasource &d) { d.adbDeviceNotFound(gone); }, &LogDatasourceRecorder::adbNotFound,
         "No Android device found. Make sure it is connected and developer mode is enabled.", true, 1},
        {[&](LogDatasource &d) { d.pidReceived(multiple); }, &LogDatasourceRecorder::multipleDevices, "", false, 1},
        {[&](LogDatasource &d) { d.pidReceived(notFound); }, &LogDatasourceRecorder::deviceNotFound, "", false, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.message.toStdString());
        ds = makeDatasource();
        delegate.*c.reported = 0;
        const qsizetype stops = readers.events().count("stop");
        ds->setDeviceId("serial");
        ds->startLogger();
        onWorker([&] { c.fail(*ds); });
        const auto ended = [&] {
            return delegate.*c.reported == 1 && !ds->isLogging() &&
                   readers.events().count("stop") == stops + c.readerStops;
        };
        EXPECT_TRUE(QTest::qWaitFor(ended, 5000));
        if (!c.message.isEmpty()) {
            EXPECT_EQ(ds->getDataAll().last().value(LogEntry::Text), c.message);
        }
        EXPECT_EQ(ds->deviceId(), c.forgetsDevice ? "" : "serial");
    }
    EXPECT_EQ(delegate.lastError, gone);
}

// Lines, process lists, user names, refiltering and snapshots all at once (ThreadSanitizer watches
// this one). The lines that arrive between a filter job's snapshot and its commit are filtered again
// under the lock, so the view ends up exactly the matching part of the log.
TEST_F(LogDatasourceTest, ConcurrentUseLosesNoLine)
{
    const Filter errors = Filter::parse("type ==[cd] 'E'");
    std::atomic<int> running{2};
    std::thread lines([&] {
        for (int i = 0; i < 20000; ++i) {
            clock.advanceMs(1);
            ds->logLineReceived(line("10:00:00.000", 100 + i % 50, 1, i % 2 ? "I" : "E", "T", QString::number(i)));
        }
        --running;
    });
    std::thread ps([&] {
        QList<std::pair<int, QString>> procs;
        for (int p = 100; p < 150; ++p)
            procs.append({p, QStringLiteral("proc%1").arg(p)});
        for (int round = 0; round < 20; ++round)
            ds->pidReceived(psOutput(procs));
        --running;
    });
    for (int round = 0; round < 8 || running > 0; ++round) {
        ds->setAppName("user", "149");
        (void)ds->getDataAll();
        (void)ds->getDataFiltered();
        filterBy(round % 3 ? errors : Filter());
    }
    lines.join();
    ps.join();
    filterBy(errors);
    const QList<LogEntry> all = ds->getDataAll();
    EXPECT_EQ(all.size(), 20000); // equal times are never duplicates
    QList<LogEntry> expected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(expected),
                 [](const LogEntry &e) { return e.value(LogEntry::Type) == "E"; });
    const QList<LogEntry> view = ds->getDataFiltered();
    ASSERT_EQ(view.size(), 10000);
    for (qsizetype i = 0; i < view.size(); ++i)
        ASSERT_TRUE(view[i].sameRecord(expected[i])) << i;
}

} // namespace
