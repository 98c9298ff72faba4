// SPDX-License-Identifier: MIT
#pragma once

#include "Presentation/LogAppearance.h"
#include "Log/LogEntry.h"

#include <QAbstractTableModel>
#include <QVector>

#include <compare>
#include <optional>

// Three numbers that must not be mixed up: an entry's running number, its place in the full log, and
// its row in the (filtered) view. Only the first and the last reach this model.
struct EntryIdx {
    quint64 value = 0;
    auto operator<=>(const EntryIdx &) const = default;
};
struct ViewRow {
    int value = -1;
    auto operator<=>(const ViewRow &) const = default;
    bool isValid() const { return value >= 0; }
};

// The log table: one row per entry of the shown snapshot, one column per entry key in key order.
// Text, colour and font are computed in data(), i.e. only for the rows being painted; the model keeps
// no per-row state beyond the snapshot itself.
class LogTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Role {
        // QPoint(start, length) of the first case-insensitive occurrence of the search text in the
        // cell's text; absent without a search text or a match.
        HighlightRangeRole = Qt::UserRole + 1,
        // The row's entry idx as quint64.
        EntryIdxRole,
    };

    explicit LogTableModel(QObject *parent = nullptr);

    // Replaces the shown rows with a new snapshot. A snapshot that extends the current one becomes one
    // batched insert; one whose head was dropped (a prune) becomes one block removal plus the insert of
    // any new tail; anything else is one reset. Rows already shown are repainted (their "app" and
    // "note" may have been filled in meanwhile). Returns what it did.
    enum class Update { None, Appended, Pruned, Reset };
    Update setRows(QVector<LogEntry> rows);
    const QVector<LogEntry> &rows() const { return m_rows; }

    LogEntry entryAt(ViewRow row) const;
    std::optional<EntryIdx> idxAt(ViewRow row) const;
    // The first row showing the entry with this idx; invalid when it is not shown.
    ViewRow rowForIdx(EntryIdx idx) const;

    void setAppearance(const LogAppearance &appearance);
    const LogAppearance &appearance() const { return m_appearance; }

    // Repaints every row: their "app" or "note" was written through the shared entries.
    void repaintAll();

    // The text to highlight in every cell; empty for none.
    void setSearchText(const QString &text);
    const QString &searchText() const { return m_searchText; }

    // Auto-follow after the user scrolled: on when the row under the bottom edge is one of the last
    // five. Both sides are compared as unsigned 64-bit numbers on purpose: -1 (no row under the edge) is
    // then the largest value, and with fewer than five rows the limit wraps to a huge number.
    static bool followAfterScroll(int lastVisibleRow, int rowCount);
    // The row to bring back into view after `rowsBefore - rowsNow` rows vanished above `firstVisibleBefore`.
    static int rowAfterPrune(int rowsNow, int rowsBefore, int firstVisibleBefore);

    // What Copy puts on the clipboard: one line per entry, the value of `key`, or without a key the eight
    // values from "time" to "note" joined by tabs ("idx" is never copied); line feeds and carriage returns
    // inside become blanks and every line ends with a line feed. Null for no entries.
    static QString copyText(const QList<LogEntry> &entries, std::optional<LogEntry::Field> key);

    // Default header titles and widths (in characters of the table font) of each key's column.
    static QString columnTitle(LogEntry::Field field);
    static int defaultColumnChars(LogEntry::Field field);
    // The note column's width once some row has a note.
    static constexpr int NoteColumnChars = 16;
    // Longer messages are cut in their tooltip.
    static constexpr qsizetype MaxToolTipLength = 4000;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

signals:
    // The fonts changed: the view must recompute its row height.
    void appearanceChanged();

private:
    // Drops the rows on a pool thread: the last references free their records there.
    static void releaseElsewhere(QVector<LogEntry> rows);
    // How many leading rows of the current snapshot were dropped in `next`, if `next` continues it.
    std::optional<int> droppedHead(const QVector<LogEntry> &next) const;

    QVector<LogEntry> m_rows;
    LogAppearance m_appearance;
    QString m_searchText;
};
