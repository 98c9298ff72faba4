// SPDX-License-Identifier: MIT
// Process names without threads: the process-list answer, the lookups and what an answer does to the
// entries waiting in a log store.
#include "Session/LogStore.h"
#include "Session/ProcessListAnswer.h"
#include "Session/ProcessNamer.h"
#include "support/ManualTime.h"
#include "support/SessionTestData.h"

#include <gtest/gtest.h>

namespace {

// "pid name" of each process of an answer, ";" between them.
QString processesOf(const ProcessListAnswer &answer)
{
    QStringList out;
    for (const auto &process : answer.processes)
        out << process.pid + u' ' + process.name;
    return out.join(u';');
}

TEST(ProcessListTest, LinesGiveThePidAndTheName)
{
    const std::pair<const char *, const char *> cases[] = {
        // the line, "pid name" or "" for no process
        {"u0_a12 1234 567 1000 200 0 0 S com.example", "1234 com.example"},
        {"u0_a12 1234 567 1000 200 0 0 S <pre-initialized>", ""},
        {"a 12 b", ""},                        // fewer than 4 pieces
        {"a b c d", ""},                       // no integer piece
        {"root      1     0  init", "1 init"}, // runs of blanks give empty pieces
        {"x 00 0 y", "0 y"},                   // "00" is no integer, "0" is
    };
    for (const auto &[line, expected] : cases) {
        const auto ps = ProcessNameMap::parsePsLine(QString::fromLatin1(line));
        EXPECT_EQ(ps ? ps->pid + u' ' + ps->name : QString(), expected) << line;
    }
}

TEST(ProcessListTest, AnswersOf99CharactersOrFewerAreShort)
{
    EXPECT_TRUE(ProcessListAnswer::parse(QString()).isShort);
    EXPECT_TRUE(ProcessListAnswer::parse(QString(99, u'x')).isShort);
    // 100 characters are a process list; the header line and CR LF layouts, "-" lines skipped.
    QString hundred =
        QStringLiteral("USER PID PPID VSIZE RSS WCHAN PC NAME\r\nroot 7 1 2 3 0 0 S sh\r\n--- x 1 2 3\r\n");
    hundred = hundred.leftJustified(99, u' ') + u'\n';
    ASSERT_EQ(hundred.size(), 100);
    const ProcessListAnswer answer = ProcessListAnswer::parse(hundred);
    EXPECT_FALSE(answer.isShort);
    EXPECT_EQ(processesOf(answer), "7 sh");
}

TEST(ProcessListTest, ErrorLinesThatEndTheSessionAbortTheAnswer)
{
    using enum ProcessListAnswer::Abort;
    const std::pair<const char *, ProcessListAnswer::Abort> cases[] = {
        {"error: more than one device and emulator", MultipleDevices},
        {"error: device not found", DeviceNotFound},
        {"error: something else", None},
    };
    for (const auto &[error, abort] : cases) {
        const ProcessListAnswer answer = ProcessListAnswer::parse(psOutput({{1, "init"}}) + QString::fromLatin1(error) +
                                                                  "\nu0_a12 2 1 1000 200 0 0 S after\n");
        EXPECT_EQ(answer.abort, abort) << error;
        // Lines before the error count; after an aborting one nothing more is read.
        EXPECT_EQ(processesOf(answer), abort == None ? "1 init;2 after" : "1 init") << error;
    }
}

// What the map and the line path (names remembered per thread) say of each pid, "|" between pids.
QString names(const ProcessNamer &namer, const QStringList &pids)
{
    QStringList out;
    for (const QString &pid : pids)
        out << namer.nameFor(pid) + u'/' + QString::fromUtf8(namer.nameForUtf8(pid.toUtf8()));
    return out.join(u'|');
}

class ProcessNamerTest : public ::testing::Test
{
protected:
    // Lines of pid `pid` without a name, at the clock's time.
    int waitFor(const QString &pid, int lines)
    {
        std::vector<LogStore::Line> run;
        for (int i = 0; i < lines; ++i)
            run.push_back({LogEntry::create(++idx, {"t", "", pid, "1", "I", "T", "x", ""}), false});
        return store.commit(run, false).lookupsDue;
    }
    QString appOf(qsizetype i) const { return store.all()[i].value(LogEntry::App); }

    quint64 idx = 0;
    ManualClock clock{1'000'000};
    LogStore store{clock};
    ProcessNamer namer{clock};
};

TEST_F(ProcessNamerTest, OneLookupAtATimeAFollowUpForRequestsMeanwhileAndShortAnswersAskAgain)
{
    EXPECT_EQ(namer.requestLookups(), std::optional<bool>(true)); // "-A" first
    EXPECT_TRUE(namer.lookupRunning());
    EXPECT_EQ(namer.requestLookups(), std::nullopt); // remembered
    EXPECT_EQ(namer.applyAnswer(psOutput({{1, "init"}}), store).lookupWithDashA, std::optional<bool>(true));
    EXPECT_EQ(namer.applyAnswer(psOutput({{1, "init"}}), store).lookupWithDashA, std::nullopt);
    EXPECT_FALSE(namer.lookupRunning());

    // Several requests at once: the first starts a lookup, the others ask for the follow-up.
    EXPECT_EQ(namer.requestLookups(2), std::optional<bool>(true));
    EXPECT_EQ(namer.applyAnswer(psOutput({{1, "init"}}), store).lookupWithDashA, std::optional<bool>(true));

    namer.reset();
    EXPECT_FALSE(namer.lookupRunning());

    // Short answers flip the "-A" argument and ask again.
    namer.requestLookups();
    EXPECT_EQ(namer.applyAnswer(QString(99, u'.'), store).lookupWithDashA, std::optional<bool>(false));
    EXPECT_FALSE(namer.addDashA());
    EXPECT_EQ(namer.applyAnswer(std::nullopt, store).lookupWithDashA, std::optional<bool>(true)); // no limit
    namer.applyAnswer(QString(), store);
    namer.endOfStream(); // a new stream tries "-A" first
    EXPECT_TRUE(namer.addDashA());
}

// A lookup that ends without an answer ends; while lookups keep failing they start at most every 5 s,
// and an answer ends the spacing.
TEST_F(ProcessNamerTest, FailedLookupsEndAndAreRetriedEveryFiveSeconds)
{
    ASSERT_TRUE(namer.requestLookups());
    namer.requestLookups(); // a follow-up asked for meanwhile is dropped with the failure
    clock.advanceMs(1000);
    namer.lookupFailed("device offline");
    EXPECT_FALSE(namer.lookupRunning());
    clock.advanceMs(3999); // 4.999 s after the failed one started
    EXPECT_EQ(namer.requestLookups(), std::nullopt);
    EXPECT_FALSE(namer.lookupRunning());
    clock.advanceMs(1);
    ASSERT_EQ(namer.requestLookups(), std::optional<bool>(true));
    namer.lookupFailed("device offline");
    EXPECT_EQ(namer.requestLookups(), std::nullopt);
    clock.advanceMs(5000);
    ASSERT_TRUE(namer.requestLookups());
    namer.applyAnswer(psOutput({{1, "init"}}), store);
    EXPECT_EQ(namer.requestLookups(), std::optional<bool>(true)); // answered: no spacing any more
    namer.lookupFailed("a");
    namer.lookupFailed("twice"); // nothing runs: the spacing still counts from the failed start
    clock.advanceMs(5000);
    EXPECT_TRUE(namer.requestLookups());
}

TEST_F(ProcessNamerTest, AnswersNameWaitingEntriesAndGiveUpOnGonePids)
{
    waitFor("5", 1); // first seen before the lookup
    clock.advanceMs(1000);
    ASSERT_EQ(waitFor("6", 2), 1);
    waitFor("42", 2);
    namer.requestLookups(); // starts now: pid 6 was first seen at this very time
    namer.applyAnswer(psOutput({{42, "com.answer"}, {1, "init"}}), store);
    EXPECT_EQ(namer.nameFor("42"), "com.answer");
    EXPECT_EQ(appOf(3), "com.answer");
    EXPECT_EQ(appOf(4), "com.answer");
    EXPECT_EQ(appOf(0), ""); // pid 5 is given up, pid 6 keeps waiting
    EXPECT_EQ(store.waitingPidCount(), 1);

    // An aborting answer still names what came before it, and ends no lookup.
    namer.requestLookups();
    namer.applyAnswer(psOutput({{6, "six"}}) + "error: device not found\n", store);
    EXPECT_EQ(appOf(1), "six");
    EXPECT_TRUE(namer.lookupRunning());
}

// User names win and survive the end of a stream and clearing. A change of the map must show on the
// very next line, and two namers on one thread must not see each other's names.
TEST_F(ProcessNamerTest, UserNamesWinAndEveryChangeShowsOnBothPaths)
{
    ProcessNamer other(clock);
    namer.setUserName("300", "Mine");
    namer.applyAnswer(psOutput({{300, "com.device.name"}, {42, "device.name"}, {7, "seven"}}), store);
    other.applyAnswer(psOutput({{42, "other.name"}}), store);
    EXPECT_EQ(names(namer, {"300", "42", "042", "x9"}), "Mine/Mine|device.name/device.name|/|/"); // "042" is not "42"
    namer.setUserName("42", "user.name");
    EXPECT_EQ(names(namer, {"42"}), "user.name/user.name");
    EXPECT_EQ(names(other, {"42"}), "other.name/other.name");
    other.endOfStream(); // the device's names are forgotten
    EXPECT_EQ(names(other, {"42"}), "/");
    EXPECT_EQ(names(namer, {"42", "7"}), "user.name/user.name|seven/seven");
    namer.endOfStream();
    EXPECT_EQ(names(namer, {"7"}), "/");
    namer.reset();
    EXPECT_EQ(names(namer, {"300", "42"}), "Mine/Mine|user.name/user.name");
}

} // namespace
