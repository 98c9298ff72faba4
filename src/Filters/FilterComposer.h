// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"

#include <QList>
#include <QString>

#include <optional>

class SavedFilters;

// How the window's filter commands build filters: the active filter from the selected saved filters and
// the search box, the quick filter, the filter from a clicked cell and the narrowing of a saved filter.
// Pure functions of their arguments (plus the saved filters they are given), so the window only calls them.
class FilterComposer
{
public:
    FilterComposer() = delete;

    // A composed filter: `error` set means the text did not parse and the action is abandoned (the active
    // filter stays as it was); otherwise `filter` is the new active filter, null meaning "All Messages".
    struct Outcome
    {
        Filter filter;
        QString error;
        bool showError = false; // the error is for the user (the status line), not only the diagnostic log
        bool failed() const { return !error.isEmpty(); }
    };

    // The search box alone: empty -> null; "p: EXPR" (5 characters or more) -> EXPR parsed; Android Studio's
    // query keys (SearchQuery) -> their translation; otherwise the text, unescaped, searched in name, text,
    // app, pid, tid and note (a quote in it makes it unparseable).
    static Outcome searchFilter(const QString &searchText);

    // applySelectedFilters. selectedRows: the selected rows of the filter list; selectedRow: the list's
    // selected row (the current/last selected row, -1 for none). Saved filters count only when selectedRow
    // is above 0; they and the search filter are ANDed (one part alone is itself).
    static Outcome activeFilter(const SavedFilters &saved, const QList<int> &selectedRows, int selectedRow,
                                const QString &searchText);

    // For the filter editor: a comparison on a key that entries do not have matches nothing, so it is
    // refused with the keys the language knows. Empty when every key is known.
    static QString unknownKeyError(const Filter &filter);

    // Status line text of setPredicate: "Filter: <printed>" or "Filter: All Messages" for a null filter.
    static QString statusText(const Filter &active);

    // Quick filter: the new search box text for the clicked cell ("p: type ==[cd] 'V'" for the type column,
    // whatever the title's case; the value alone otherwise). The caller then recomputes activeFilter.
    static QString quickFilterSearchText(const QString &columnTitle, const QString &value);

    // key ==[cd] "value" (include) or key !=[cd] "value"; the value is taken literally.
    static Filter cellComparison(const QString &key, const QString &value, bool include = true);
    // Name proposed for a filter made from a cell: "<column title>_<value>".
    static QString cellFilterName(const QString &columnTitle, const QString &value);

    // The old filter ANDed with the cell comparison. An old AND is extended rather than nested, so that
    // narrowing again and again never deepens the saved text.
    static Filter narrowed(const Filter &old, const QString &key, const QString &value, bool include);
    // updateFilterWithSelected: only when selectedRow >= 2 (row 1 is deliberately excluded), replaces that
    // saved filter with its narrowed form and saves. Returns the new filter to make active, or nothing.
    static std::optional<Filter> narrowSelectedFilter(SavedFilters &saved, int selectedRow, const QString &key,
                                                      const QString &value, bool include);

    // Column titles of the filter sheet: "app" -> "APP", ..., "note" -> "Note"; other keys (time) -> "".
    static QString columnTitle(const QString &key);
};
