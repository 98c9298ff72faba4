// SPDX-License-Identifier: MIT
#include "Log/LogEntry.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QList>

#include <atomic>
#include <thread>

namespace {

LogEntry sample(quint64 idx = 7)
{
    return testEntry({.idx = idx, .name = "ActivityManager", .text = QStringLiteral(" Start proc é")});
}

} // namespace

TEST(LogEntryTest, KeysAreTheNineInOrder)
{
    EXPECT_EQ(LogEntry::keysArray(), (QStringList{"idx", "time", "app", "pid", "tid", "type", "name", "text", "note"}));
    EXPECT_EQ(LogEntry::fieldForKey(u"name"), LogEntry::Name);
    EXPECT_EQ(LogEntry::fieldForKey(u"idx"), LogEntry::Idx);
    EXPECT_FALSE(LogEntry::fieldForKey(u"Name").has_value());
}

TEST(LogEntryTest, CreateKeepsEveryFieldAndMissingOnesAreEmpty)
{
    const LogEntry e = sample();
    EXPECT_EQ(e.value(LogEntry::Idx), "7");
    EXPECT_EQ(fieldsOf(e), QString::fromUtf8("01-23 14:05:06.789||1234|-|I|ActivityManager| Start proc é|"));
    EXPECT_FALSE(e.value(LogEntry::App).isNull()) << "absent values are empty strings";
    EXPECT_TRUE(e.fieldIsEmpty(LogEntry::Note));
    EXPECT_TRUE(e.fieldEquals(LogEntry::Name, u"activitymanager", Qt::CaseInsensitive));
    EXPECT_FALSE(e.fieldEquals(LogEntry::Name, u"activitymanager"));
    EXPECT_TRUE(e.fieldEquals(LogEntry::Idx, u"7"));
    QString out = "x";
    e.appendValue(LogEntry::Pid, out);
    EXPECT_EQ(out, "x1234");
    EXPECT_EQ(e.utf8Value(LogEntry::Text), QByteArray(" Start proc \xc3\xa9"));
}

TEST(LogEntryTest, NullEntryReadsAsEmpty)
{
    const LogEntry e;
    EXPECT_TRUE(e.isNull());
    EXPECT_EQ(e.value(LogEntry::Text), QString());
    e.setApp(QStringLiteral("ignored"));
    EXPECT_EQ(e.value(LogEntry::App), QString());
}

TEST(LogEntryTest, CopiesShareTheRecordAndSeeLaterWrites)
{
    const LogEntry a = sample();
    QList<LogEntry> full{a};
    QList<LogEntry> view{a};
    EXPECT_TRUE(full[0].sameRecord(view[0]));
    EXPECT_FALSE(a.sameRecord(sample()));
    view[0].setApp(QStringLiteral("com.example"));
    full[0].setNote(QStringLiteral("checked"));
    EXPECT_TRUE(a.fieldEquals(LogEntry::App, u"com.example"));
    EXPECT_EQ(view[0].value(LogEntry::Note), "checked");
    a.setApp(QString());
    EXPECT_TRUE(full[0].fieldIsEmpty(LogEntry::App));
}

TEST(LogEntryTest, BlockRowsShareTheBufferAndNumberInOrder)
{
    QByteArray buffer = "A 1 2 I T: x\n";
    // Second line has fields too long for the compact row (a 300-byte pid), and a note.
    const QByteArray longPid(300, '9');
    const qsizetype second = buffer.size();
    buffer += "B " + longPid + " tail NOTE:[n\n";
    LogEntryBlockBuilder builder(buffer);
    LogEntryFields a;
    a.setSlice(LogEntry::Time, 0, 1);
    a.setSlice(LogEntry::Pid, 2, 1);
    a.setOwned(LogEntry::Tid, "-");
    a.setSlice(LogEntry::Type, 6, 1);
    a.setSlice(LogEntry::Name, 8, 1);
    a.setSlice(LogEntry::Text, 10, 2);
    builder.addRow(0, a);
    LogEntryFields b;
    b.setSlice(LogEntry::Time, 0, 1);
    b.setSlice(LogEntry::Pid, 2, 300);
    b.setSlice(LogEntry::Text, 302, 5);
    b.setSlice(LogEntry::Note, 314, 1);
    builder.addRow(second, b);
    QList<LogEntry> out;
    builder.appendTo(out, 100);
    EXPECT_EQ(builder.size(), 0);
    ASSERT_EQ(out.size(), 2);
    EXPECT_EQ(out[1].idx(), 101u);
    EXPECT_EQ(fieldsOf(out[0]), "A||1|-|I|T| x|");
    EXPECT_EQ(fieldsOf(out[1]), "B||" + QString::fromLatin1(longPid) + "|||| tail|n");
    out[1].setApp(QStringLiteral("app"));
    EXPECT_EQ(out[1].value(LogEntry::App), "app");
    EXPECT_EQ(out[0].value(LogEntry::App), "") << "a write to one row leaves its block neighbours alone";
    const LogEntry survivor = out[1];
    out.clear();
    EXPECT_EQ(survivor.value(LogEntry::Note), "n") << "a handle keeps the shared block alive";
}

// Run under ThreadSanitizer in CI: one thread fills in app names while another reads every field.
TEST(LogEntryTest, ConcurrentWritesAndReadsAreRaceFree)
{
    QList<LogEntry> entries;
    for (int i = 0; i < 2000; ++i)
        entries.append(sample(quint64(i)));
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int round = 0; round < 5; ++round) {
            for (const LogEntry &e : entries)
                e.setApp(QStringLiteral("app%1").arg(round));
        }
        done = true;
    });
    while (!done.load()) {
        for (const LogEntry &e : entries) {
            const QString app = e.value(LogEntry::App);
            EXPECT_TRUE(app.isEmpty() || app.startsWith(QLatin1String("app")));
        }
    }
    writer.join();
    EXPECT_EQ(entries.last().value(LogEntry::App), "app4");
}
