// SPDX-License-Identifier: MIT
#include "Presentation/LogTableModel.h"
#include "support/QtPrinters.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QBrush>
#include <QPoint>
#include <QSignalSpy>

namespace {

// A model with the item-model tester attached and spies on every structural signal.
struct WatchedModel
{
    LogTableModel model;
    QAbstractItemModelTester tester{&model, QAbstractItemModelTester::FailureReportingMode::Fatal};
    QSignalSpy inserted{&model, &QAbstractItemModel::rowsInserted};
    QSignalSpy removed{&model, &QAbstractItemModel::rowsRemoved};
    QSignalSpy reset{&model, &QAbstractItemModel::modelReset};
    QSignalSpy changed{&model, &QAbstractItemModel::dataChanged};

    // The changes since the last call, e.g. "-0-29 +70-81 repaint" or "reset"; the spies are cleared.
    QString takeAnnounced()
    {
        QStringList out;
        for (const QList<QVariant> &r : removed)
            out << QStringLiteral("-%1-%2").arg(r.at(1).toInt()).arg(r.at(2).toInt());
        for (const QList<QVariant> &i : inserted)
            out << QStringLiteral("+%1-%2").arg(i.at(1).toInt()).arg(i.at(2).toInt());
        for (qsizetype n = 0; n < reset.count(); ++n)
            out << QStringLiteral("reset");
        for (qsizetype n = 0; n < changed.count(); ++n)
            out << QStringLiteral("repaint");
        for (QSignalSpy *spy : {&removed, &inserted, &reset, &changed})
            spy->clear();
        return out.join(u' ');
    }
    QVariant cell(int row, int column, int role = Qt::DisplayRole) const
    {
        return model.data(model.index(row, column), role);
    }
};

} // namespace

TEST(LogTableModelTest, GrowingSnapshotIsOneBatchedInsertPerUpdate)
{
    WatchedModel w;
    QVector<LogEntry> log = testEntries(0, 10);
    EXPECT_EQ(w.model.setRows(log), LogTableModel::Update::Appended);
    EXPECT_EQ(w.takeAnnounced(), "+0-9");
    log += testEntries(10, 250);
    EXPECT_EQ(w.model.setRows(log), LogTableModel::Update::Appended);
    // The rows already shown are repainted too: their app or note may have been filled in.
    EXPECT_EQ(w.takeAnnounced(), "+10-259 repaint");
    EXPECT_EQ(w.cell(259, LogEntry::Text), QStringLiteral(" message 259"));

    // Unchanged: only a repaint, which shows an app name that arrived late.
    log[2].setApp(QStringLiteral("com.late.name"));
    EXPECT_EQ(w.model.setRows(log), LogTableModel::Update::None);
    EXPECT_EQ(w.takeAnnounced(), "repaint");
    EXPECT_EQ(w.cell(2, LogEntry::App), QStringLiteral("com.late.name"));
}

TEST(LogTableModelTest, PruneIsOneBlockRemovalThenTheNewTail)
{
    WatchedModel w;
    QVector<LogEntry> log = testEntries(0, 100);
    w.model.setRows(log);
    w.takeAnnounced();

    // The buffer dropped its oldest 30 entries and 12 new ones arrived in the same tick.
    QVector<LogEntry> next = log.mid(30) + testEntries(100, 12);
    EXPECT_EQ(w.model.setRows(next), LogTableModel::Update::Pruned);
    EXPECT_EQ(w.takeAnnounced(), "-0-29 +70-81 repaint");
    EXPECT_EQ(w.model.idxAt(ViewRow{0}), EntryIdx{30});
    EXPECT_EQ(w.model.rowForIdx(EntryIdx{111}).value, 81);
    EXPECT_FALSE(w.model.rowForIdx(EntryIdx{29}).isValid());
    // A prune with nothing new.
    EXPECT_EQ(w.model.setRows(next.mid(2)), LogTableModel::Update::Pruned);
    EXPECT_EQ(w.takeAnnounced(), "-0-1 repaint");
    EXPECT_EQ(w.model.rowCount(), 80);
}

TEST(LogTableModelTest, SnapshotThatDoesNotContinueIsOneReset)
{
    WatchedModel w;
    const QVector<LogEntry> all = testEntries(0, 40);
    w.model.setRows(all);
    w.takeAnnounced();

    // A filter change: every third entry, starting with the same first entry.
    QVector<LogEntry> filtered;
    for (int i = 0; i < all.size(); i += 3)
        filtered.append(all[i]);
    // Then back to all messages (the filtered rows are not a prefix of the full log); then the same idx
    // numbers but other records (a reopened file); then a cleared log.
    for (const QVector<LogEntry> &rows : {filtered, all, testEntries(0, 50), QVector<LogEntry>()}) {
        EXPECT_EQ(w.model.setRows(rows), LogTableModel::Update::Reset);
        EXPECT_EQ(w.takeAnnounced(), "reset");
        EXPECT_EQ(w.model.rowCount(), rows.size());
    }
    EXPECT_EQ(w.model.setRows({}), LogTableModel::Update::None);
}

TEST(LogTableModelTest, CellsCarryTextColourAndFontOfTheLevelAndANewAppearanceRepaints)
{
    WatchedModel w;
    LogAppearance::Inputs inputs;
    inputs.colors[LogAppearance::Warning] = QColor(255, 128, 0);
    inputs.bold[LogAppearance::Error] = true;
    w.model.setAppearance(LogAppearance::build(inputs));
    QVector<LogEntry> rows;
    for (const char *type : {"W", "E", ""})
        rows << testEntry({.idx = quint64(rows.size()), .type = type});
    w.model.setRows(rows);
    EXPECT_EQ(w.cell(0, LogEntry::Text, Qt::ForegroundRole).value<QBrush>().color(), QColor(255, 128, 0));
    EXPECT_FALSE(w.cell(2, LogEntry::Text, Qt::ForegroundRole).isValid()) << "no colour: no brush";
    EXPECT_FALSE(w.cell(0, LogEntry::Time, Qt::FontRole).value<QFont>().bold());
    EXPECT_TRUE(w.cell(1, LogEntry::Time, Qt::FontRole).value<QFont>().bold());

    EXPECT_EQ(w.cell(0, LogEntry::Idx), QStringLiteral("0"));
    EXPECT_EQ(w.cell(0, LogEntry::Pid), QStringLiteral("1234"));
    EXPECT_EQ(w.cell(2, 0, LogTableModel::EntryIdxRole).toULongLong(), 2u);
    EXPECT_EQ(w.cell(0, LogEntry::Type, Qt::TextAlignmentRole).toInt(), int(Qt::AlignCenter));
    for (int f = 0; f < LogEntry::FieldCount; ++f)
        EXPECT_FALSE(w.model.headerData(f, Qt::Horizontal).toString().isEmpty());

    QSignalSpy fonts(&w.model, &LogTableModel::appearanceChanged);
    w.takeAnnounced();
    w.model.setAppearance(w.model.appearance().withPointSize(20));
    EXPECT_EQ(fonts.count(), 1);
    EXPECT_EQ(w.takeAnnounced(), "repaint");
    EXPECT_DOUBLE_EQ(w.cell(0, 1, Qt::FontRole).value<QFont>().pointSizeF(), 20.0);
}

TEST(LogTableModelTest, HighlightMarksFirstOccurrenceIgnoringCase)
{
    WatchedModel w;
    w.model.setRows(
        {testEntry({.idx = 0, .text = " Timeout after timeout"}), testEntry({.idx = 1, .text = " nothing here"})});
    const auto range = [&](int row, int column = LogEntry::Text) {
        return w.cell(row, column, LogTableModel::HighlightRangeRole);
    };
    EXPECT_FALSE(range(0).isValid());
    w.takeAnnounced();
    w.model.setSearchText(QStringLiteral("TIMEOUT"));
    EXPECT_EQ(w.takeAnnounced(), "repaint"); // one repaint for the new search text
    EXPECT_EQ(range(0).toPoint(), QPoint(1, 7));
    EXPECT_FALSE(range(1).isValid());
    // Other columns are matched on their own values.
    EXPECT_FALSE(range(0, LogEntry::Name).isValid());
    w.model.setSearchText(QStringLiteral("tag"));
    EXPECT_EQ(range(0, LogEntry::Name).toPoint(), QPoint(0, 3));
    w.model.setSearchText(QString());
    EXPECT_FALSE(range(0).isValid());
}

TEST(LogTableModelTest, FollowRuleComparesAsUnsigned)
{
    // {last visible row, rows, follows}. Following turns on within the last five rows. No row under the bottom
    // edge (-1) is the largest unsigned value, so following stays on; with fewer than five rows the limit
    // wraps to a huge number, so a visible last row turns it off.
    const std::tuple<int, int, bool> cases[] = {{95, 100, true}, {94, 100, false}, {-1, 100, true},
                                                {-1, 3, true},   {2, 3, false},    {0, 5, true}};
    for (const auto &[row, rows, follows] : cases)
        EXPECT_EQ(LogTableModel::followAfterScroll(row, rows), follows) << row << " of " << rows;
}

TEST(LogTableModelTest, CopyTextIsOneTabSeparatedLinePerRowWithoutLineBreaksInside)
{
    const QList<LogEntry> rows = {testEntry({.idx = 1, .app = "a", .text = " one\ntwo\r\n", .note = "n"}),
                                  testEntry({.idx = 2, .type = "E", .text = " x"}),
                                  testEntry({.idx = 3, .pid = "9", .tid = "10", .name = "T\tab"})};
    EXPECT_EQ(LogTableModel::copyText(rows, std::nullopt), "01-23 14:05:06.789\ta\t1234\t-\tI\tTag\t one two  \tn\n"
                                                           "01-23 14:05:06.789\t\t1234\t-\tE\tTag\t x\t\n"
                                                           "01-23 14:05:06.789\t\t9\t10\tI\tT\tab\t\t\n");
    EXPECT_EQ(LogTableModel::copyText(rows.mid(0, 2), LogEntry::Text), " one two  \n x\n");
    EXPECT_TRUE(LogTableModel::copyText({}, LogEntry::Text).isNull());
}
