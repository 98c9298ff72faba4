// SPDX-License-Identifier: MIT
#pragma once

#include "Presentation/LogTableModel.h"
#include "Scenes/SelectableTableView.h"

#include <QObject>
#include <QPointer>

#include <optional>

class QItemSelection;

// Drives the log table: shows each snapshot, follows the newest line, keeps the reader's place across
// prunes and filter changes, and applies the level colours, fonts and the font size commands.
// The rules themselves live in LogTableModel and LogAppearance; this class only applies them to a view.
// It is also the table's menu delegate: the context menu, the keys and the double click land here.
// GUI thread only.
class LogTableController : public QObject, public SelectableTableViewDelegate
{
    Q_OBJECT

public:
    // Sets a LogTableModel and the cell delegate on `table`, default column widths (idx hidden), then
    // restores the column layout saved under "logDataTable". Reads the appearance from the settings.
    explicit LogTableController(SelectableTableView *table, QObject *parent = nullptr);
    ~LogTableController() override;

    static constexpr const char *ColumnLayoutName = "logDataTable";

    LogTableModel *model() const { return m_model; }
    SelectableTableView *table() const { return m_table; }

    // The update path (onLogUpdated): shows the snapshot, restores the selection when a filter change
    // is in progress (and ends it), then follows the log.
    void showRows(QVector<LogEntry> rows);
    // Set before applying a filter; the next showRows restores and centres the selected entry.
    void setFilterUpdating(bool updating) { m_filterUpdating = updating; }
    bool filterUpdating() const { return m_filterUpdating; }
    bool isReloading() const { return m_isReloading; }

    // Colours, fonts and size from the settings store (the presentation half of readSettings).
    void readSettings();
    // Search text to mark in every cell (empty for none).
    void setSearchText(const QString &text);

    // Auto-follow.
    bool scrollToBottom() const { return m_scrollToBottom; }
    void changeScrollToBottom(bool on);
    void toggleAutoFollow();
    void followLog();

    // Prune callbacks of a datasource that announces its prunes (didPrune may be called from any thread).
    void willPruneLogEvents();
    void didPruneLogEvents();

    // Selects the entry last selected by the user alone and centres it; the row, or invalid when that
    // entry is not shown.
    ViewRow restoreRowSelections();
    std::optional<EntryIdx> selectedLogMessage() const { return m_selectedLogMessage; }

    // The row height in pixels for the current fonts.
    int rowHeightPixels() const;

    // --- SelectableTableViewDelegate: no menu, keys or double click of its own yet ---
    std::unique_ptr<QMenu> menuForTableView(SelectableTableView *table, int column, int row) override;
    bool onKeyEventForTableView(SelectableTableView *table, QKeyEvent *event) override;
    void onDoubleClick(SelectableTableView *table) override;

public slots:
    // Sent by the preferences window when a colour or bold flag changed.
    void fontsChanged();
    void biggerFont() { changeFontSize(true); }
    void smallerFont() { changeFontSize(false); }
    void changeFontSize(bool bigger);
    // Back to the default size 11.
    void defaultFontSize();

signals:
    // Auto-follow switched on or off (the toolbar toggle shows it).
    void scrollToBottomChanged(bool on);

private:
    void applyAppearance(const LogAppearance &appearance);
    void setFontSize(double pointSize);
    void onScrolled();
    void onSelectionChanged();
    void applyDefaultColumnWidths();
    void scrollRowToTop(int row, int offset);
    void centreRow(int row);

    QPointer<SelectableTableView> m_table;
    LogTableModel *m_model = nullptr;
    bool m_scrollToBottom = false;
    bool m_isReloading = false;
    bool m_filterUpdating = false;
    std::optional<EntryIdx> m_selectedLogMessage;
    int m_lastRow = -1;   // first visible row before a prune
    int m_rowCount = 0;   // rows before a prune
};
