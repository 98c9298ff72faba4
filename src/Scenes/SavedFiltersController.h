// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"
#include "Filters/SavedFilters.h"
#include "Scenes/FilterEditorSheet.h"
#include "Scenes/MainWindow.h"

#include <QObject>
#include <QPointer>

#include <functional>

class LogDatasource;
class LogTableController;

// The saved filters in the window: the filter list and its selection rules, the editor sheet with its
// naming and overwrite question, deleting, export and import, and the active filter built from the
// list selection and the search box. GUI thread only.
class SavedFiltersController : public QObject
{
    Q_OBJECT

public:
    static constexpr const char *ExampleFilter =
        "(app ==[cd] 'YOUR_APP_NAME') AND ((type ==[cd] 'E') OR (type ==[cd] 'W'))";

    SavedFiltersController(MainWindow *window, LogDatasource *datasource, LogTableController *table,
                           QObject *parent = nullptr);
    ~SavedFiltersController() override;

    // The saved filters' storage in the settings store: the map under "predicates".
    static SavedFilters::Storage settingsStorage();

    // Stops a live stream before an import (the controller's own stop, so retries end too).
    void setStopLogging(std::function<void()> stopLogging) { m_stopLogging = std::move(stopLogging); }

    const SavedFilters &savedFilters() const { return m_filters; }
    const Filter &predicate() const { return m_predicate; }
    FilterEditorSheet *editor() const { return m_editor; }

    // The filter half of readSettings: loads (or creates) the saved filters and reloads the list.
    void readSettings();
    void saveFilters();

    void setPredicate(const Filter &filter);
    // The list selection AND the search box.
    void applySelectedFilters();
    // Row 0 clears the filter and the other rows; every row turns auto-follow on.
    void shouldSelectRow(int row);

    void addFilter();
    void editFilter();
    void removeFilter();
    void showPredicateEditor();
    bool applyPredicate();
    void closePredicateSheet();
    void cancelPredicateEditing();
    void exportSelectedFilters();
    // Import: the file's filters that parse, asking once before replacing filters of the same name, and
    // telling the user what was imported and what skipped.
    void importFilters();
    // The cell commands of the log table's menu, for the right-clicked cell: its column title, its
    // entry key and its value.
    // Quick filter: the search box gets the cell's search text (a level comparison for the "type" key,
    // whatever the column's title) and the active filter is rebuilt.
    void applyQuickFilter(const QString &columnTitle, const QString &key, const QString &value);
    // The editor opens with key ==[cd] "value" and proposes the name "<title>_<value>".
    void filterBySelected(const QString &columnTitle, const QString &key, const QString &value);
    // Narrows the saved filter selected in the list (from row 2 on) to include or exclude the cell.
    void updateFilterWithSelected(const QString &key, const QString &value, bool include);
    // From list row 2 on: the editor opens with the selected saved filter under a new unused name. The
    // right-clicked cell of the list is only logged.
    void newFilterFromSelected(int rightClickedColumn, int rightClickedRow);
    // The list's selected row (the last of several), -1 for none.
    int selectedRow() const;

    // A path ending in "filters" (any case) is imported and true returned; other files are not touched.
    bool openIfFilterFile(const QString &path);

signals:
    void filtersChanged();

private:
    FilterEditorSheet *ensureEditor();
    void reloadList();
    void closeEditor();
    void importFile(const QString &path);
    void finishImport(const SavedFilters::ImportPlan &plan, bool replaceExisting);

    QPointer<MainWindow> m_window;
    LogDatasource *m_datasource;
    LogTableController *m_table;
    SavedFilters m_filters;
    Filter m_predicate;
    Filter m_editorFilter;
    bool m_isFirstRun = true;
    QPointer<FilterEditorSheet> m_editor;
    std::function<void()> m_stopLogging;
};
