// SPDX-License-Identifier: MIT
// The saved filters in the window: editor sheet, naming, overwrite and delete questions, list
// selection rules, export and import through the file panels.
#include "Helpers/Settings.h"
#include "Session/LogDatasource.h"
#include "Filters/SavedFilters.h"
#include "Scenes/FilterEditorSheet.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/SavedFiltersController.h"

#include "support/Dialogs.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace {

class FilterEditorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        filters.readSettings();
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }
    void TearDown() override { Settings::remove(SettingsKey::predicates); }
    FilterListView *list() { return window.filterList(); }
    // What the next launch reads.
    static SavedFilters reloaded()
    {
        SavedFilters next(SavedFiltersController::settingsStorage());
        EXPECT_FALSE(next.load().createdDefaults);
        return next;
    }

    LogCapture log; // from before the first launch's defaults
    MainWindow window;
    LogDatasource datasource;
    LogTableController table{window.logTable()};
    SavedFiltersController filters{&window, &datasource, &table};
};

} // namespace

TEST_F(FilterEditorTest, ListShowsAllMessagesThenTheDefaultsSortedAndSelectionAndSearchNarrow)
{
    QStringList rows;
    for (int row = 0; row < list()->rowCount(); ++row)
        rows << list()->rowText(row);
    EXPECT_EQ(rows.join(u'|'), "All Messages|Has Note|JSON|LogLevel Debug|LogLevel Error|LogLevel Info|"
                               "LogLevel Verbose|LogLevel Warn");

    list()->clickRow(4);                      // LogLevel Error
    list()->clickRow(1, Qt::ControlModifier); // and Has Note
    EXPECT_EQ(list()->selectedRows(), (QList<int>{1, 4}));
    EXPECT_TRUE(filters.predicate().toString().contains("AND"));
    EXPECT_TRUE(window.filterLabel()->toolTip().startsWith("Filter: "));
    // The search box joins the selection; a quote makes it unparseable and the active filter stays.
    window.searchField()->setText("needle");
    EXPECT_TRUE(filters.predicate().toString().contains("needle"));
    const QString searched = filters.predicate().toString();
    window.searchField()->setText("it's");
    EXPECT_EQ(filters.predicate().toString(), searched);
    window.searchField()->clear();

    table.changeScrollToBottom(false);
    list()->clickRow(0);
    EXPECT_TRUE(filters.predicate().isNull());
    EXPECT_EQ(list()->selectedRows(), QList<int>{0});
    EXPECT_EQ(window.filterLabel()->toolTip(), "Filter: All Messages");
    EXPECT_TRUE(table.scrollToBottom()); // any row of the list turns following on
}

TEST_F(FilterEditorTest, FirstUseShowsTheExampleBadTextStaysWithItsErrorAndANewFilterIsStoredAndSelected)
{
    filters.addFilter();
    FilterEditorSheet *editor = filters.editor();
    ASSERT_TRUE(editor && editor->isVisible());
    EXPECT_EQ(editor->filterText(), SavedFiltersController::ExampleFilter);
    EXPECT_EQ(editor->filterName(), "unnamed");

    editor->setFilterText("app ==");
    editor->saveButton()->click();
    EXPECT_TRUE(editor->isVisible());
    EXPECT_FALSE(editor->errorText().isEmpty());
    EXPECT_EQ(filters.savedFilters().count(), 7);
    editor->cancelButton()->click();
    EXPECT_FALSE(editor->isVisible());
    filters.addFilter();
    EXPECT_EQ(editor->filterText(), "app =="); // the example only on first use

    editor->setFilterName("Mine");
    editor->setFilterText("app ==[cd] 'com.example'");
    editor->saveButton()->click();
    EXPECT_FALSE(editor->isVisible());
    const int row = filters.savedFilters().rowForName("Mine");
    EXPECT_EQ(list()->selectedRows(), QList<int>{row});
    EXPECT_EQ(list()->rowText(row), "Mine");
    EXPECT_TRUE(editor->filterName().isEmpty());
    EXPECT_TRUE(reloaded().contains("Mine"));
}

TEST_F(FilterEditorTest, EditingFillsTheSheetAndOverwriteCancelKeepsTheOldFilterAndTheSheet)
{
    filters.editFilter(); // row 0: nothing
    EXPECT_TRUE(filters.editor() == nullptr || !filters.editor()->isVisible());
    list()->clickRow(2);
    filters.editFilter();
    FilterEditorSheet *editor = filters.editor();
    ASSERT_TRUE(editor->isVisible());
    EXPECT_EQ(editor->filterName(), "JSON");
    const Filter old = filters.savedFilters().filter("JSON");
    EXPECT_EQ(Filter::parse(editor->filterText()), old);

    editor->setFilterText("type == 'E'");
    editor->saveButton()->click();
    EXPECT_EQ(dialogs::answer(&window, "Cancel"),
              "Filter already exists\nAre you sure you want to overwrite the filter with the name \"JSON\"");
    EXPECT_TRUE(editor->isVisible());
    EXPECT_EQ(filters.savedFilters().filter("JSON"), old);

    editor->saveButton()->click();
    dialogs::answer(&window, "Overwrite");
    EXPECT_FALSE(editor->isVisible());
    EXPECT_EQ(filters.savedFilters().filter("JSON"), Filter::parse("type == 'E'"));
}

TEST_F(FilterEditorTest, DeleteAsksForOneOrSeveralAndAnEmptiedListStaysEmpty)
{
    list()->clickRow(2);
    filters.removeFilter();
    EXPECT_EQ(dialogs::answer(&window, "No"), "Delete Filter?\nDelete filter: \"JSON\"?");
    EXPECT_TRUE(filters.savedFilters().contains("JSON"));

    list()->clickRow(1, Qt::ControlModifier);
    list()->clickRow(3, Qt::ControlModifier);
    filters.removeFilter();
    EXPECT_EQ(dialogs::answer(&window, "Yes"), "Delete Filter?\nDelete 3 selected filters?");
    EXPECT_EQ(filters.savedFilters().count(), 4);
    EXPECT_EQ(list()->rowCount(), 5);
    EXPECT_EQ(list()->selectedRows(), QList<int>{0});

    // Row 0 alone: nothing to ask.
    filters.removeFilter();
    EXPECT_EQ(dialogs::visible<QMessageBox>(&window), nullptr);

    // The rest: the next launch finds an empty list, not the defaults.
    for (int row = 1; row < list()->rowCount(); ++row)
        list()->clickRow(row, Qt::ControlModifier);
    filters.removeFilter();
    dialogs::answer(&window, "Yes");
    EXPECT_EQ(filters.savedFilters().count(), 0);
    EXPECT_EQ(reloaded().count(), 0);
}

TEST_F(FilterEditorTest, ExportThenImportThroughTheFilePanelsEachLoggedOnceThenOpenAFile)
{
    EXPECT_EQ(log.count("Created default predicates: "), 1);
    QTemporaryDir dir;
    const QString path = dir.filePath("two.filters");
    list()->clickRow(0);
    list()->clickRow(2, Qt::ControlModifier);
    list()->clickRow(4, Qt::ControlModifier);
    filters.exportSelectedFilters();
    ASSERT_TRUE(dialogs::choose(&window, path));
    EXPECT_EQ(log.count("Save filter to: " + path), 1);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(SavedFilters::fromPropertyList(file.readAll()).value_or(QMap<QString, QString>()).keys(),
              (QStringList{"JSON", "LogLevel Error"}));

    // Remove them, then import them back.
    filters.removeFilter();
    dialogs::answer(&window, "Yes");
    ASSERT_FALSE(filters.savedFilters().contains("JSON"));
    filters.importFilters();
    ASSERT_TRUE(dialogs::choose(&window, path));
    EXPECT_EQ(log.count("Open url: " + path), 1);
    EXPECT_TRUE(dialogs::answer(&window, "OK").startsWith("Filters imported\nImported 2 filters."));
    EXPECT_EQ(list()->rowCount(), 8);

    // Opening a filters file imports it, whatever the case of its extension.
    const QString opened = writeTestFile(
        dir.filePath("X.FILTERS"), SavedFilters::toPropertyList({{"JSON", "type == 'W'"}, {"Imported", "tid == '7'"}}));
    EXPECT_TRUE(filters.openIfFilterFile(opened));
    // "JSON" is a name in use: nothing is replaced until the user says so.
    EXPECT_FALSE(filters.savedFilters().contains("Imported"));
    EXPECT_TRUE(dialogs::answer(&window, "Replace").contains("\"JSON\""));
    EXPECT_TRUE(filters.savedFilters().contains("Imported"));
    EXPECT_EQ(filters.savedFilters().filter("JSON"), Filter::parse("type == 'W'"));
    EXPECT_TRUE(reloaded().contains("Imported"));
    // Then what was done.
    EXPECT_TRUE(dialogs::answer(&window, "OK").startsWith("Filters imported\nImported 2 filters."));
    EXPECT_FALSE(filters.openIfFilterFile(dir.filePath("log.txt")));
}
