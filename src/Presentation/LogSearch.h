// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QString>

#include <optional>

// The search that jumps from matching row to matching row. The text is a case-sensitive regular
// expression (an invalid one matches nothing), tried on every value of a row but "idx" and "type", in
// key order. Direction 0 searches from the selected row itself, 1 from the row after it, -1 backwards
// from the row before it; without a selection the search runs backwards from the last row. It wraps
// around the ends and stops when it is back at its start.
//
// Rows are tried a block at a time: a block's values joined by line feeds are matched once (multi-line,
// so ^ and $ still see each value's ends), and only a block with a match is tried value by value. A
// pattern whose meaning the joining could change (\A, \z, \G, negative look-arounds) is tried value by
// value throughout. A text with no special character is searched as plain bytes in the values' UTF-8.
// Pure: no widgets, any thread; a long search screens blocks on a second thread of its own, joined
// before find() returns.
class LogSearch
{
public:
    LogSearch() = delete;

    struct Result
    {
        int startIndex = -1;        // the first row tried
        int direction = 0;          // the direction searched (-1 when there was no selection)
        int beeps = 0;              // one per wrap around an end and one for no match, never for direction 0
        int row = -1;               // the matching row; -1 for none
        LogEntry::Field field = LogEntry::Idx; // the value it matched in
        bool found() const { return row >= 0; }
    };

    // Nothing is searched (an invalid start, no beeps) for an empty text or no rows.
    static Result find(const QList<LogEntry> &rows, const QString &text, std::optional<int> selectedRow, int direction);

    // An index at or past the end becomes 0, a negative one the last row; `wrapped` says whether it moved.
    static int checkSearchIndex(int index, int rowCount, bool *wrapped = nullptr);
};
