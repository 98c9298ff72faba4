// SPDX-License-Identifier: MIT
// The log store without threads: runs of parsed lines committed directly, a manual clock.
#include "Filters/Filter.h"
#include "Session/LogStore.h"
#include "support/ManualTime.h"
#include "support/SessionTestData.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

namespace {

class LogStoreTest : public ::testing::Test
{
protected:
    // One line; an empty `app` leaves the pid waiting for a name.
    LogStore::Line line(const QString &time, const QString &text, const QString &pid = "1", const QString &app = "a",
                        const QString &type = "I")
    {
        return {LogEntry::create(++idx, {time, app, pid, "1", type, "T", text, ""}), false};
    }

    LogStore::CommitResult commit(std::vector<LogStore::Line> lines, bool hasFilter = false)
    {
        return store.commit(lines, hasFilter);
    }

    quint64 idx = 0;
    ManualClock clock{1'000'000};
    LogStore store{clock};
};

TEST_F(LogStoreTest, ReplayAfterAReconnectIsDroppedUpToTheLastTimeShown)
{
    commit({line("10:00:00", "a"), line("10:00:01", "b"), line("", "untimed"), line("10:00:02", "c")});

    store.endOfStream(true);
    // a and b are older than c and dropped, and so is c, shown already with that time; lines without
    // a time pass; d ends the check, so a later line with an older time passes again.
    commit({line("10:00:00", "a"), line("", "sep"), line("10:00:01", "b"), line("10:00:02", "c"), line("10:00:03", "d"),
            line("09:00:00", "old")});
    EXPECT_EQ(store.numDuplicateRows(), 3u);
    EXPECT_EQ(textsOf(store.all()), QStringList({"a", "b", "untimed", "c", "sep", "d", "old"}));
    EXPECT_EQ(store.lastDateReceived(), "09:00:00");

    // A stream of an older session ends without resetting the count; clearing keeps the last date.
    store.endOfStream(false);
    EXPECT_EQ(store.numDuplicateRows(), 3u);
    store.clear();
    EXPECT_EQ(store.lastDateReceived(), "09:00:00");

    // A new device replays nothing that was shown; the same device again keeps the check.
    store.setDeviceId("A");
    store.endOfStream(true);
    store.setDeviceId("A");
    EXPECT_TRUE(store.checkDates());
    store.setDeviceId("B");
    EXPECT_FALSE(store.checkDates());
    commit({line("08:00:00", "older on B")});
    EXPECT_EQ(store.count(), 1u);
    EXPECT_EQ(store.endOfStream(true), "B");
    store.clearDeviceId();
    EXPECT_EQ(store.deviceId(), "");
}

// The lines of the last time are dropped from a replay as often as they were kept (a system message
// after them does not hide them); a line of that time not seen before ends the check, as does a later one.
TEST_F(LogStoreTest, ReplayedLinesOfTheLastTimeAreDroppedAsOftenAsTheyWereKept)
{
    const QString t = "10:00:05";
    struct Case
    {
        const char *name;
        std::vector<QString> replay;
        QStringList added;
    };
    const std::vector<Case> cases = {
        {"all seen", {"x", "x", "y", "z"}, {"z"}},
        {"one more x than kept", {"x", "x", "x", "y"}, {"x", "y"}},
        {"new line of that time", {"x", "w", "x"}, {"w", "x"}},
        {"other pid, same text", {"x", "x", "y", "y2"}, {"y"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        LogStore s{clock};
        std::vector<LogStore::Line> first = {line("10:00:04", "old"), line(t, "x"), line(t, "x"), line(t, "y")};
        s.commit(first, false);
        s.append(LogEntry::create(
            ++idx, {"2026-01-01 00:00:00.000", "Quillfern", "---", "---", "QF", "---", "Disconnected", ""}));
        s.endOfStream(true);
        std::vector<LogStore::Line> replay = {line("10:00:04", "old")};
        for (const QString &text : c.replay)
            replay.push_back(text == "y2" ? line(t, "y", "2") : text == "z" ? line("10:00:06", "z") : line(t, text));
        s.commit(replay, false);
        EXPECT_EQ(textsOf(s.all()).mid(5), c.added);
        EXPECT_FALSE(s.checkDates());
    }
}

TEST_F(LogStoreTest, NamelessPidsWaitAndAskFromTheirSecondLine)
{
    // Every further nameless line of the pid asks, also within one run (when a pid is given up, the
    // process namer's test shows).
    EXPECT_EQ(commit({line("1", "x", "42", "")}).lookupsDue, 0);
    const auto run = commit({line("2", "y", "42", ""), line("3", "z", "42", ""), line("4", "named", "42", "n")});
    EXPECT_EQ(run.lookupsDue, 2);
    commit({line("5", "later", "7", "")});

    store.nameWaiting("42", "com.answer");
    store.nameWaiting("99", "nobody waits");
    const QList<LogEntry> all = store.all();
    EXPECT_EQ(all[2].value(LogEntry::App), "com.answer");
    EXPECT_EQ(all[3].value(LogEntry::App), "n");
    EXPECT_EQ(store.waitingPidCount(), 1);

    store.giveUpWaitingBefore(clock.nowSeconds() + 0.001);
    EXPECT_EQ(store.waitingPidCount(), 0);
    EXPECT_EQ(all[4].value(LogEntry::App), "");

    // The user's name reaches every entry of the pid, waiting or not.
    commit({line("6", "again", "7", "")});
    EXPECT_EQ(store.nameAll("7", "Mine"), 2);
    EXPECT_EQ(store.waitingPidCount(), 0);
    EXPECT_EQ(store.all()[4].value(LogEntry::App), "Mine");
}

TEST_F(LogStoreTest, NonMatchingLinesAnnounceNothingUnlessTheyPrune)
{
    store.setCapacity(1500);
    clock.advanceMs(1000);
    std::vector<LogStore::Line> quiet;
    for (int i = 0; i < 1500; ++i)
        quiet.push_back(line("1", QString::number(i)));
    EXPECT_FALSE(commit(quiet, true).announce);
    EXPECT_FALSE(store.flushThrottle());
    EXPECT_TRUE(store.view().isEmpty());

    // The 1501st prunes a block of 1000 and is announced though the filter did not take it.
    const LogStore::CommitResult prune = commit({line("1", "prunes")}, true);
    EXPECT_TRUE(prune.announce);
    EXPECT_EQ(store.count(), 501u);
    // The pruned block comes back whole, oldest first, for the caller to release.
    ASSERT_EQ(prune.pruned.size(), 1000);
    EXPECT_EQ(prune.pruned.first().value(LogEntry::Text), "0");
    EXPECT_EQ(prune.pruned.last().value(LogEntry::Text), "999");
    EXPECT_EQ(store.all().first().value(LogEntry::Text), "1000");

    LogStore::Line matched = line("1", "shown");
    matched.matched = true;
    clock.advanceMs(1000);
    EXPECT_TRUE(commit({matched}, true).announce);
    EXPECT_EQ(textsOf(store.view()), QStringList({"shown"}));
}

TEST_F(LogStoreTest, RefilteringCatchesUpWithLinesThatArrivedMeanwhile)
{
    const Filter errors = Filter::parse("type ==[cd] 'E'");
    commit({line("1", "e1", "1", "a", "E"), line("2", "i1")});
    LogStore::Snapshot snap = store.snapshot();
    QString error;
    QList<LogEntry> matches = filterEntries(snap.entries, errors, &error);
    commit({line("3", "e2", "1", "a", "E"), line("4", "i2")}); // after the snapshot
    EXPECT_EQ(store.commitFilter(snap, matches, errors, &error), 2);
    EXPECT_EQ(textsOf(store.view()), QStringList({"e1", "e2"}));

    // Replaced meanwhile: the log as it is now is filtered again.
    snap = store.snapshot();
    matches = filterEntries(snap.entries, errors, &error);
    store.replaceWithFile({testEntry({.type = "E", .text = "file"})});
    EXPECT_EQ(store.capacity(), 0u); // a file is unbounded
    EXPECT_EQ(store.commitFilter(snap, matches, errors, &error), 1);
    EXPECT_EQ(textsOf(store.view()), QStringList({"file"}));

    // A filter that fails on an entry commits nothing.
    const Filter bad = Filter::parse("idx CONTAINS[cd] '1'");
    snap = store.snapshot();
    commit({line("5", "e3", "1", "a", "E")});
    EXPECT_EQ(store.commitFilter(snap, {}, bad, &error), -1);
    EXPECT_FALSE(error.isEmpty());
    store.clearView();
    EXPECT_TRUE(store.view().isEmpty());
}

} // namespace
