// SPDX-License-Identifier: MIT
#include "Scenes/SavedFiltersController.h"

#include "Filters/FilterComposer.h"
#include "Helpers/Logger.h"
#include "Helpers/Settings.h"
#include "Session/LogDatasource.h"
#include "Scenes/FilterEditorSheet.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogTableController.h"
#include "Scenes/SelectableTableView.h"
#include "Scenes/MainWindow.h"

#include <QAction>
#include <QLineEdit>
#include <QMessageBox>

SavedFiltersController::SavedFiltersController(MainWindow *window, LogDatasource *datasource,
                                               LogTableController *table, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_datasource(datasource)
    , m_table(table)
    , m_filters(settingsStorage())
{
    FilterListView *list = window->filterList();
    connect(list, &FilterListView::rowAboutToBeSelected, this, &SavedFiltersController::shouldSelectRow);
    connect(list, &FilterListView::selectionChanged, this, &SavedFiltersController::applySelectedFilters);
    connect(list, &FilterListView::rowDoubleClicked, this, [this](int) { editFilter(); });
    const MainWindow::Actions &a = window->actions();
    connect(a.addFilter, &QAction::triggered, this, &SavedFiltersController::addFilter);
    connect(a.editFilter, &QAction::triggered, this, &SavedFiltersController::editFilter);
    connect(a.removeFilter, &QAction::triggered, this, &SavedFiltersController::removeFilter);
    connect(a.exportFilters, &QAction::triggered, this, &SavedFiltersController::exportSelectedFilters);
    connect(a.importFilters, &QAction::triggered, this, &SavedFiltersController::importFilters);
    connect(window->searchField(), &QLineEdit::textChanged, this, &SavedFiltersController::applySelectedFilters);
    connect(datasource, &LogDatasource::filterCorrupt, this,
            [this](const QString &title, const QString &button, const QString &reason) {
                m_predicate = Filter();
                if (m_window)
                    m_window->ask(title, reason, button, QString(), [](bool) {});
            });
}

SavedFiltersController::~SavedFiltersController() = default;

SavedFilters::Storage SavedFiltersController::settingsStorage()
{
    SavedFilters::Storage storage;
    storage.read = []() -> std::optional<SavedFilters::Texts> {
        if (!Settings::contains(SettingsKey::predicates))
            return std::nullopt;
        const QVariantMap stored = Settings::value(SettingsKey::predicates).toMap();
        SavedFilters::Texts texts;
        for (auto it = stored.cbegin(); it != stored.cend(); ++it)
            texts.insert(it.key(), it.value().toString());
        return texts;
    };
    storage.write = [](const SavedFilters::Texts &texts) {
        QVariantMap map;
        for (auto it = texts.cbegin(); it != texts.cend(); ++it)
            map.insert(it.key(), it.value());
        Settings::setValue(SettingsKey::predicates, map);
    };
    return storage;
}

void SavedFiltersController::readSettings()
{
    m_filters.load(); // a stored text that does not parse is logged where it is read
    reloadList();
}

void SavedFiltersController::saveFilters()
{
    m_filters.save();
    reloadList();
}

void SavedFiltersController::reloadList()
{
    if (m_window)
        m_window->filterList()->setFilterNames(m_filters.sortedNames());
    emit filtersChanged();
}

void SavedFiltersController::setPredicate(const Filter &filter)
{
    m_predicate = filter;
    m_datasource->setLogDataFilter(filter);
    if (m_window)
        m_window->setFilterText(FilterComposer::statusText(filter));
}

void SavedFiltersController::applySelectedFilters()
{
    const QList<int> rows = m_window->filterList()->selectedRows();
    const FilterComposer::Outcome outcome = FilterComposer::activeFilter(
        m_filters, rows, rows.isEmpty() ? -1 : rows.back(), m_window->searchField()->text());
    if (outcome.failed()) {
        QF_LOG(QStringLiteral("filter not applied: %1").arg(outcome.error));
        if (outcome.showError) {
            // A query with an unknown key shows the log as without the search, and says why.
            setPredicate(FilterComposer::activeFilter(m_filters, rows, rows.isEmpty() ? -1 : rows.back(), {}).filter);
            m_table->setFilterUpdating(true);
            m_window->setFilterText(outcome.error);
        }
        return;
    }
    setPredicate(outcome.filter);
    m_table->setFilterUpdating(true);
}

void SavedFiltersController::shouldSelectRow(int row)
{
    if (row == 0) {
        setPredicate(Filter());
        QF_LOG(QStringLiteral("Clear Filter"));
        m_window->filterList()->clearSelection();
    }
    m_table->changeScrollToBottom(true);
}

FilterEditorSheet *SavedFiltersController::ensureEditor()
{
    if (!m_editor) {
        m_editor = new FilterEditorSheet(m_window);
        connect(m_editor, &FilterEditorSheet::applyClicked, this, &SavedFiltersController::applyPredicate);
        connect(m_editor, &FilterEditorSheet::saveClicked, this, &SavedFiltersController::closePredicateSheet);
        connect(m_editor, &FilterEditorSheet::cancelClicked, this, &SavedFiltersController::cancelPredicateEditing);
    }
    return m_editor;
}

void SavedFiltersController::addFilter()
{
    ensureEditor()->setFilterName(m_filters.newUnusedPredicateName());
    showPredicateEditor();
}

void SavedFiltersController::editFilter()
{
    const QList<int> rows = m_window->filterList()->selectedRows();
    const int row = rows.isEmpty() ? 0 : rows.back();
    if (row < 1) {
        QF_LOG(QStringLiteral("no filter selected! %1").arg(row));
        return;
    }
    const QString name = m_filters.nameForRow(row);
    m_editorFilter = m_filters.filter(name);
    m_isFirstRun = false;
    ensureEditor()->setFilterName(name);
    m_editor->setFilterText(m_editorFilter.toString());
    showPredicateEditor();
}

int SavedFiltersController::selectedRow() const
{
    const QList<int> rows = m_window->filterList()->selectedRows();
    return rows.isEmpty() ? -1 : rows.back();
}

void SavedFiltersController::applyQuickFilter(const QString &columnTitle, const QString &key, const QString &value)
{
    // The level column is titled "Level" here, so its key decides.
    const QString text =
        FilterComposer::quickFilterSearchText(key == QLatin1String("type") ? key : columnTitle, value);
    QLineEdit *field = m_window->searchField();
    if (field->text() == text)
        applySelectedFilters();
    else
        field->setText(text); // the search box's change rebuilds the active filter
}

void SavedFiltersController::filterBySelected(const QString &columnTitle, const QString &key, const QString &value)
{
    m_editorFilter = FilterComposer::cellComparison(key, value);
    m_isFirstRun = false;
    ensureEditor()->setFilterName(FilterComposer::cellFilterName(columnTitle, value));
    m_editor->setFilterText(m_editorFilter.toString());
    showPredicateEditor();
}

void SavedFiltersController::updateFilterWithSelected(const QString &key, const QString &value, bool include)
{
    const std::optional<Filter> narrowed =
        FilterComposer::narrowSelectedFilter(m_filters, selectedRow(), key, value, include);
    if (!narrowed)
        return;
    setPredicate(*narrowed);
    m_table->setFilterUpdating(true);
}

void SavedFiltersController::newFilterFromSelected(int rightClickedColumn, int rightClickedRow)
{
    const int row = selectedRow();
    if (row >= 2) {
        const QString name = m_filters.nameForRow(row);
        m_editorFilter = m_filters.filter(name);
        m_isFirstRun = false;
        ensureEditor()->setFilterName(m_filters.newUnusedPredicateName(name));
        m_editor->setFilterText(m_editorFilter.toString());
        showPredicateEditor();
    }
    QF_LOG(QStringLiteral("%1, %2, predicate:%3").arg(rightClickedColumn).arg(rightClickedRow).arg(m_predicate.toString()));
}

void SavedFiltersController::showPredicateEditor()
{
    FilterEditorSheet *editor = ensureEditor();
    if (m_isFirstRun) {
        m_editorFilter = Filter::parse(QString::fromLatin1(ExampleFilter));
        editor->setFilterText(QString::fromLatin1(ExampleFilter));
    } else if (editor->filterText().isEmpty() && !m_editorFilter.isNull()) {
        editor->setFilterText(m_editorFilter.toString());
    }
    if (editor->filterName().isEmpty())
        editor->setFilterName(m_filters.newUnusedPredicateName());
    QF_LOG(QStringLiteral("isFirstRun:%1, savePredicateName:%2").arg(int(m_isFirstRun)).arg(editor->filterName()));
    m_isFirstRun = false;
    editor->showSheet();
}

bool SavedFiltersController::applyPredicate()
{
    FilterEditorSheet *editor = ensureEditor();
    const Filter filter = Filter::parse(editor->filterText());
    const QString error = filter.isValid() ? FilterComposer::unknownKeyError(filter) : filter.errorString();
    if (!error.isEmpty()) {
        editor->setErrorText(error);
        return false;
    }
    editor->setErrorText({});
    m_editorFilter = filter;
    QF_LOG(QStringLiteral("apply predicate: %1").arg(filter.toString()));
    setPredicate(filter);
    editor->setFilterText(filter.toString());
    m_table->setFilterUpdating(true);
    return true;
}

void SavedFiltersController::closePredicateSheet()
{
    if (!applyPredicate())
        return;
    QString name = m_editor->filterName().trimmed();
    if (name.isEmpty())
        name = m_filters.newUnusedPredicateName();
    auto store = [this, name] {
        m_filters.setFilter(name, m_editorFilter);
        saveFilters();
        m_window->filterList()->selectRow(m_filters.rowForName(name));
        m_editor->setFilterName(QString());
        closeEditor();
    };
    if (!m_filters.contains(name)) {
        store();
        return;
    }
    m_window->ask(QStringLiteral("Filter already exists"),
                  QStringLiteral("Are you sure you want to overwrite the filter with the name \"%1\"").arg(name),
                  QStringLiteral("Overwrite"), QStringLiteral("Cancel"), [store](bool overwrite) {
                      if (overwrite)
                          store();
                  });
}

void SavedFiltersController::cancelPredicateEditing()
{
    closeEditor();
    applySelectedFilters();
}

void SavedFiltersController::closeEditor()
{
    if (m_editor)
        m_editor->done(QDialog::Rejected);
}

void SavedFiltersController::removeFilter()
{
    const QStringList names = m_filters.namesForRows(m_window->filterList()->selectedRows());
    if (names.isEmpty())
        return;
    const QString text = names.size() == 1 ? QStringLiteral("Delete filter: \"%1\"?").arg(names.front())
                                           : QStringLiteral("Delete %1 selected filters?").arg(names.size());
    QPointer<SavedFiltersController> self(this);
    m_window->ask(QStringLiteral("Delete Filter?"), text, QStringLiteral("Yes"), QStringLiteral("No"),
                  [self, names](bool yes) {
                      if (!self || !yes)
                          return;
                      self->m_filters.remove(names);
                      self->saveFilters();
                      self->m_window->filterList()->selectRow(0);
                  });
}

void SavedFiltersController::exportSelectedFilters()
{
    const QList<int> rows = m_window->filterList()->selectedRows();
    if (rows.isEmpty())
        return;
    const QStringList names = m_filters.namesForRows(rows);
    const QString ext = SavedFilters::FileExtension.toString();
    QPointer<SavedFiltersController> self(this);
    m_window->chooseFileToSave(tr("Export Filters"), {ext}, false, [self, names](const QString &path, bool) {
        if (!self)
            return;
        if (!self->m_filters.exportFilters(path, names))
            QF_LOG_ERROR(QStringLiteral("could not write %1").arg(path));
    });
}

void SavedFiltersController::importFilters()
{
    QPointer<SavedFiltersController> self(this);
    m_window->chooseFileToOpen(tr("Import Filters"), {tr("Filters (*.filters)"), tr("All files (*)")},
                               [self](const QString &path) {
                                   if (!self)
                                       return;
                                   if (self->m_datasource->isLogging() && self->m_stopLogging)
                                       self->m_stopLogging();
                                   self->importFile(path);
                               });
}

bool SavedFiltersController::isFilterFile(const QString &path)
{
    return path.toLower().endsWith(QLatin1String("filters"));
}

bool SavedFiltersController::openIfFilterFile(const QString &path)
{
    if (!isFilterFile(path))
        return false;
    importFile(path);
    return true;
}

void SavedFiltersController::importFile(const QString &path)
{
    const SavedFilters::ImportPlan plan = m_filters.readImport(path);
    if (plan.existing.isEmpty()) {
        finishImport(plan, true);
        return;
    }
    // One question for every name in use, not one per name.
    constexpr qsizetype listed = 5;
    QString names = QStringList(plan.existing.mid(0, listed)).join(QStringLiteral("\", \""));
    names = QStringLiteral("\"%1\"").arg(names);
    if (plan.existing.size() > listed)
        names += QStringLiteral(" and %1 more").arg(plan.existing.size() - listed);
    QPointer<SavedFiltersController> self(this);
    m_window->ask(QStringLiteral("Replace existing filters?"),
                  QStringLiteral("Filters in the file have the names of filters you already have: %1. "
                                 "Replace yours with them, or keep yours and import only the others?")
                      .arg(names),
                  QStringLiteral("Replace"), QStringLiteral("Keep Mine"), [self, plan](bool replace) {
                      if (self)
                          self->finishImport(plan, replace);
                  });
}

void SavedFiltersController::finishImport(const SavedFilters::ImportPlan &plan, bool replaceExisting)
{
    const SavedFilters::ImportResult result = m_filters.applyImport(plan, replaceExisting);
    if (!result.imported.isEmpty())
        reloadList();
    m_window->showAlert(result.ok() ? QStringLiteral("Filters imported") : QStringLiteral("Filters not imported"),
                        result.summary());
}
