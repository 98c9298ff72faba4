// SPDX-License-Identifier: MIT
#pragma once

#include "Presentation/LogTableModel.h"
#include "Scenes/AppRenamingSheet.h"
#include "Scenes/LogTableSearch.h"
#include "Scenes/MessageNoteSheet.h"
#include "Scenes/SelectableTableView.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <functional>
#include <optional>

class FilterListView;
class QItemSelection;
class QLineEdit;
class SavedFiltersController;

// Drives the log table: shows each snapshot, follows the newest line, keeps the reader's place across
// prunes and filter changes, and applies the level colours, fonts and the font size commands.
// The rules themselves live in LogTableModel and LogAppearance; this class only applies them to a view.
// It is also the menu delegate of both tables (the log and the filter list): the context menus, the
// keys and the double clicks land here, with the search, copy, notes, app names and the process tree
// behind them. The search itself is LogSearch, the tree ProcessTree, the menus LogTableMenus.
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

    // What the menus and keys reach beyond the table. Everything may be null in tests that do not need it.
    struct Collaborators
    {
        QLineEdit *searchField = nullptr;          // typing in either table writes the search here
        FilterListView *filterList = nullptr;      // its table gets this controller as menu delegate
        SavedFiltersController *filters = nullptr; // the filter commands of both menus
        QWidget *sheetParent = nullptr;            // the window the note and app-name sheets belong to
        std::function<void()> clearLog;            // Ctrl+Backspace in the log table
        std::function<void(const QString &name, const QString &pid)> setAppName;
        std::function<void(const QUrl &)> openUrl; // null: the desktop's handler
        std::function<void()> beep;                // null: QApplication::beep
    };
    void setCollaborators(Collaborators collaborators);

    // --- Search ---
    // Searches the shown rows for `text` (a case-sensitive regular expression) from the selection:
    // direction 0 from the selected row, 1 onwards, -1 backwards; selects and shows the row found.
    void doSearch(const QString &text, int direction);
    bool isLiveSearching() const { return m_search.isLiveSearching(); }
    // False when the application stops being the active one: the next key typed starts a new search.
    void setLiveSearching(bool on) { m_search.setLiveSearching(on); }

    // --- Copy ---
    // Copy text of the selected rows (LogTableModel::copyText); null without a selection.
    QString stringForSelectedRow(std::optional<LogEntry::Field> key) const;
    void copySelectedRow(std::optional<LogEntry::Field> key);

    // --- The right-clicked cell ---
    QString rightClickedCellValue() const;
    QList<QUrl> linksForRightClickedCell() const;

    MessageNoteSheet *messageNoteSheet() const { return m_noteSheet; }
    AppRenamingSheet *appRenameSheet() const { return m_renameSheet; }

    // --- SelectableTableViewDelegate, for both tables ---
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

    // The search field's commands: typing (search), find next (F3, Ctrl+G), find previous.
    void search(const QString &text);
    void find();
    void findNext();
    void findPrevious();

    // Table commands.
    void copy();
    void copyMessageOnly();
    // The selected rows' messages, one per line; else the right-clicked cell's value; else nothing.
    void onViewText();
    void dumpProcessTree();
    void openRightClickedLink();
    void onSearchGoogle();

    // Notes: the sheet for the right-clicked row (addNote) or for every selected row (onAddMultiNotes).
    void addNote();
    void onAddMultiNotes();
    void onAddMessageNote();
    // The app-name sheet for the right-clicked row's process.
    void userDefinedAppName();
    void onAppRenameSave();

    // Filter commands on the right-clicked cell, and those of the filter list's menu.
    void applyQuickFilter();
    void filterBySelected();
    void updateFilterInclude() { updateFilterWithSelected(true); }
    void updateFilterExclude() { updateFilterWithSelected(false); }
    void updateFilterWithSelected(bool include);
    void editFilter();
    void newFilterFromSelected();
    void exportSelectedFilters();

signals:
    // A text for the message viewer: View Message, a double click on a log row, the process tree.
    void viewTextRequested(const QString &text);
    // Auto-follow switched on or off (the toolbar toggle shows it).
    void scrollToBottomChanged(bool on);

private:
    void applyAppearance(const LogAppearance &appearance);
    void setFontSize(double pointSize);
    void onScrolled();
    void onSelectionChanged();
    void applyDefaultColumnWidths();
    int columnWidth(int chars) const; // in pixels, for characters of the table font
    // The note column starts narrow and takes a readable width when the first note shows.
    void widenNoteColumnOnFirstNote();
    void scrollRowToTop(int row, int offset);
    void centreRow(int row);
    void openUrl(const QUrl &url);
    QList<int> selectedRowNumbers() const;
    QList<LogEntry> selectedEntries() const;
    LogEntry entryAtRow(int row) const; // a null entry for no row
    LogEntry rightClickedEntry() const;
    // The right-clicked column's entry key; nullopt when the click was on no column.
    std::optional<LogEntry::Field> rightClickedField() const;
    QString columnTitle(std::optional<LogEntry::Field> field) const;

    QPointer<SelectableTableView> m_table;
    LogTableModel *m_model = nullptr;
    bool m_scrollToBottom = false;
    bool m_isReloading = false;
    bool m_filterUpdating = false;
    std::optional<EntryIdx> m_selectedLogMessage;
    int m_lastRow = -1;   // first visible row before a prune
    int m_rowCount = 0;   // rows before a prune
    bool m_noteColumnNarrow = true;
    Collaborators m_with;
    LogTableSearch m_search;
    QPointer<MessageNoteSheet> m_noteSheet;
    QPointer<AppRenamingSheet> m_renameSheet;
};
