// SPDX-License-Identifier: MIT
#include "Presentation/LogSearch.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

namespace {

// Rows 0..count-1 with the text " message <n>"; `texts` replaces the texts of some rows.
QList<LogEntry> rowsWith(int count, const QList<std::pair<int, QString>> &texts)
{
    QList<LogEntry> rows = testEntries(0, count);
    for (const auto &[row, text] : texts)
        rows[row] = testEntry({.idx = quint64(row), .text = text});
    return rows;
}

} // namespace

TEST(LogSearchTest, DirectionsWrapsBeepsAndStart)
{
    const QList<LogEntry> rows = rowsWith(10, {{2, " needle"}, {7, " needle"}});
    const struct
    {
        const char *what;
        QString text;
        std::optional<int> selected;
        int direction;
        int row, start, searchedDirection, beeps;
    } cases[] = {
        {"typing starts at the selected row itself", "needle", 7, 0, 7, 7, 0, 0},
        {"find next leaves the selected row", "needle", 7, 1, 2, 8, 1, 1},
        {"find next on the last row wraps to row 0 with a beep", "needle", 9, 1, 2, 0, 1, 1},
        {"find previous", "needle", 7, -1, 2, 6, -1, 0},
        {"find previous on row 0 wraps to the last row", "needle", 0, -1, 7, 9, -1, 1},
        {"no selection: backwards from the newest row", "needle", std::nullopt, 0, 7, 9, -1, 0},
        {"found nowhere: one wrap and the no-match beep", "haystack", 4, 1, -1, 5, 1, 2},
        {"typing never beeps", "haystack", 4, 0, -1, 4, 0, 0},
        {"an invalid expression matches nothing", "(", 4, -1, -1, 3, -1, 2},
        {"case-sensitive", "Needle", 4, 0, -1, 4, 0, 0},
        {"a regular expression", "ne.dle$", 3, 1, 7, 4, 1, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const LogSearch::Result r = LogSearch::find(rows, c.text, c.selected, c.direction);
        EXPECT_EQ(r.row, c.row);
        EXPECT_EQ(r.startIndex, c.start);
        EXPECT_EQ(r.direction, c.searchedDirection);
        EXPECT_EQ(r.beeps, c.beeps);
    }
    EXPECT_EQ(LogSearch::find(rows, QString(), 1, 1).startIndex, -1);
    EXPECT_EQ(LogSearch::find({}, QStringLiteral("x"), std::nullopt, 1).startIndex, -1);
}

TEST(LogSearchTest, MatchesEveryValueButIdxAndTypeInKeyOrder)
{
    const QList<LogEntry> rows = {
        testEntry({.idx = 555, .type = "E", .name = "Tag", .text = " E 1"}),
        testEntry({.idx = 1, .app = "com.app", .name = "appTag", .text = " app", .note = "app note"})};
    const struct
    {
        QString text;
        int row;
        LogEntry::Field field;
    } cases[] = {{"555", -1, LogEntry::Idx},   {"^E$", -1, LogEntry::Idx}, {"app", 1, LogEntry::App},
                 {"note", 1, LogEntry::Note}, {"^Tag$", 0, LogEntry::Name}, {"14:05", 0, LogEntry::Time}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        const LogSearch::Result r = LogSearch::find(rows, c.text, 0, 0);
        EXPECT_EQ(r.row, c.row);
        if (r.found()) {
            EXPECT_EQ(r.field, c.field);
        }
    }
}

TEST(LogSearchTest, BlocksFindWhatValueByValueMatchingFinds)
{
    // Matches far apart, across the blocks the search screens at once, in both directions; anchors see
    // each value's own ends; \A and look-arounds, which joined values could hide, are still found.
    const QList<LogEntry> rows = rowsWith(5000, {{30, " first"}, {3100, "start middle end"}, {4990, "last"}});
    const struct
    {
        QString text;
        int selected, direction, row;
    } cases[] = {{"first|last", 40, 1, 4990},     {"first|last", 4000, -1, 30},   {"^start", 0, 1, 3100},
                 {"end$", 4999, -1, 3100},         {"\\Astart", 0, 1, 3100},      {"^last(?!\\n)", 0, -1, 4990},
                 {"(?<!x)last", 0, -1, 4990},       {"middle\\nend", 0, 1, -1},    {"e 40\\n", 0, 1, -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        EXPECT_EQ(LogSearch::find(rows, c.text, c.selected, c.direction).row, c.row);
    }
}
