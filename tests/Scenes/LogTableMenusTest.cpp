// SPDX-License-Identifier: MIT
// The reading tools of the main window through the log table controller: the two context menus and
// their rules, the commands behind them, typing into the tables, copy, notes and app names.
#include "Helpers/Settings.h"
#include "Scenes/AppRenamingSheet.h"
#include "Scenes/FilterEditorSheet.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/MessageNoteSheet.h"
#include "Scenes/SavedFiltersController.h"
#include "Session/LogDatasource.h"
#include "support/QtPrinters.h"
#include "support/TestEntries.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {

class LogTableMenusTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        filters.readSettings(); // the seven default filters
        LogTableController::Collaborators with;
        with.searchField = window.searchField();
        with.filterList = window.filterList();
        with.filters = &filters;
        with.sheetParent = &window;
        with.clearLog = [this] { ++clears; };
        with.setAppName = [this](const QString &name, const QString &pid) { datasource.setAppName(name, pid); };
        with.openUrl = [this](const QUrl &url) { opened << url.toString(QUrl::FullyEncoded); };
        with.beep = [this] { ++beeps; };
        table.setCollaborators(std::move(with));
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

        QList<LogEntry> rows = testEntries(0, 6);
        rows[1] = testEntry({.idx = 1, .pid = "77", .type = "E", .text = " see https://example.org/x. Then more"});
        rows[2] = testEntry({.idx = 2, .app = "com.known", .text = " two\nlines"});
        // Rows reach the table as they do in the window: through the datasource, so names reach them.
        datasource.setLogDataFromFile(rows);
        ASSERT_TRUE(QTest::qWaitFor([&] { return datasource.getDataFiltered().size() == 6; }, 5000));
        table.showRows(datasource.getDataFiltered());
    }
    void TearDown() override
    {
        if (QWidget *popup = QApplication::activePopupWidget())
            popup->close();
        Settings::remove(SettingsKey::predicates);
    }

    void selectRows(const QList<int> &rows)
    {
        window.logTable()->clearSelection();
        for (int row : rows)
            window.logTable()->selectionModel()->select(table.model()->index(row, 1),
                                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    // Right-clicks a cell as the user does and returns the menu that opened, as "title|tooltip" lines
    // ("-" for a separator, "Title>" and indented items for a submenu).
    QStringList rightClick(SelectableTableView *view, int row, int column)
    {
        const QPoint pos = view->visualRect(view->model()->index(row, column)).center();
        QContextMenuEvent event(QContextMenuEvent::Mouse, pos, view->viewport()->mapToGlobal(pos));
        QApplication::sendEvent(view->viewport(), &event);
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (!menu)
            return {};
        QStringList items = describe(menu, QString());
        menu->close();
        return items;
    }
    static QStringList describe(QMenu *menu, const QString &indent)
    {
        QStringList out;
        for (QAction *a : menu->actions()) {
            if (a->isSeparator())
                out << indent + "-";
            else if (a->menu())
                out << indent + a->text() + ">" << describe(a->menu(), indent + "  ");
            else
                out << indent + a->text() +
                           (a->toolTip() != QString(a->text()).remove("...") ? "|" + a->toolTip() : QString());
        }
        return out;
    }
    static QStringList firstFive()
    {
        return {"Copy", "Copy Message|Copy Message to clipboard",
                "View Message|View Message contents in message viewer",
                "Add Note To Selected|Add a note to multiple log messages",
                "Dump Process Tree|Dumps process tree from displayed log messages"};
    }

    MainWindow window;
    LogDatasource datasource;
    LogTableController table{window.logTable()};
    SavedFiltersController filters{&window, &datasource, &table};
    int clears = 0;
    int beeps = 0;
    QStringList opened;
};

} // namespace

TEST_F(LogTableMenusTest, LogTableMenuFollowsTheSelectionTheColumnAndTheFilterList)
{
    SelectableTableView *view = window.logTable();
    const QStringList cellItems{"-",
                                "New Filter...|Create new filter: Message = \"see https://example.org/x. Then more\"",
                                "Quick Filter|Perform quick filter: \"see https://example.org/x. Then more\"",
                                "Add Note|Adds a note to log message: \"see https://example.org/x. Then more\""};
    EXPECT_EQ(rightClick(view, 1, LogEntry::Text),
              firstFive() + cellItems + QStringList({"-", "Open Link", "Search with Google"}));

    // The saved filter in list row 2 can be narrowed; the one in row 1 cannot.
    window.filterList()->selectRow(1);
    EXPECT_FALSE(rightClick(view, 1, LogEntry::Text).contains("Update Filter>"));
    window.filterList()->selectRow(2);
    EXPECT_EQ(rightClick(view, 1, LogEntry::Text),
              firstFive() + cellItems +
                  QStringList({"Update Filter>",
                               "  Include \"see https://exa...\"|Update saved filter \"JSON\" to INCLUDE "
                               "Message=\"see https://example.org/x. Then more\"",
                               "  Exclude \"see https://exa...\"|Update saved filter \"JSON\" to EXCLUDE "
                               "Message=\"see https://example.org/x. Then more\"",
                               "-", "Open Link", "Search with Google"}));

    const struct
    {
        const char *what;
        int row, column;
        QStringList tail;
    } cases[] = {
        {"the first column shown (idx is hidden): no filter or note items",
         0,
         LogEntry::Time,
         {"-", "Search with Google"}},
        {"an empty app cell can be named",
         0,
         LogEntry::App,
         {"-", "New Filter...|Create new filter: Application = \"\"", "Quick Filter|Perform quick filter: \"\"",
          "Add Note|Adds a note to log message: \"\"", "Update Filter>",
          "  Include \"\"|Update saved filter \"JSON\" "
          "to INCLUDE Application=\"\"",
          "  Exclude \"\"|Update saved filter \"JSON\" to EXCLUDE Application=\"\"", "-", "Search with Google", "-",
          "Set App Name"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(rightClick(view, c.row, c.column), firstFive() + c.tail);
    }
    EXPECT_FALSE(rightClick(view, 2, LogEntry::App).contains("Set App Name")); // a named app
    EXPECT_FALSE(rightClick(view, 0, LogEntry::Text).contains("Open Link"));   // no link

    // Several rows selected (the right click keeps them: SelectableTableViewTest): the menu ends after five items.
    selectRows({1, 2, 3});
    EXPECT_EQ(rightClick(view, 2, LogEntry::Text), firstFive());

    EXPECT_EQ(rightClick(window.filterList()->table(), 3, 0),
              QStringList({"Edit Filter...", "New Filter From Selected...", "Export Selected..."}));
}

TEST_F(LogTableMenusTest, CellCommandsFilterOpenAndSearch)
{
    SelectableTableView *view = window.logTable();
    rightClick(view, 1, LogEntry::Type); // the column titled "Level"
    table.applyQuickFilter();
    EXPECT_EQ(window.searchField()->text(), "p: type ==[cd] 'E'");
    EXPECT_EQ(filters.predicate().toString(), "type ==[cd] \"E\"");

    rightClick(view, 1, LogEntry::Pid);
    table.filterBySelected();
    ASSERT_TRUE(filters.editor());
    EXPECT_EQ(filters.editor()->filterText(), "pid ==[cd] \"77\"");
    EXPECT_EQ(filters.editor()->filterName(), "PID_77");
    filters.cancelPredicateEditing();

    // Narrowing: nothing from list row 1, the saved filter of row 2 from there on.
    window.filterList()->selectRow(1);
    const QString row1 = filters.savedFilters().filter("Has Note").toString();
    table.updateFilterExclude();
    EXPECT_EQ(filters.savedFilters().filter("Has Note").toString(), row1);
    window.filterList()->selectRow(2);
    table.updateFilterExclude();
    EXPECT_TRUE(filters.savedFilters().filter("JSON").toString().endsWith(") AND pid !=[cd] \"77\""));
    EXPECT_EQ(filters.predicate(), filters.savedFilters().filter("JSON"));

    rightClick(window.filterList()->table(), 4, 0); // selects "LogLevel Error" alone
    table.newFilterFromSelected();
    EXPECT_EQ(filters.editor()->filterName(), "LogLevel Error-1");
    filters.cancelPredicateEditing();

    rightClick(view, 1, LogEntry::Text);
    table.openRightClickedLink();
    rightClick(view, 2, LogEntry::Text);
    table.onSearchGoogle();
    table.openRightClickedLink(); // no link: a beep
    EXPECT_EQ(opened, QStringList({"https://example.org/x", "https://www.google.com/search?q=%20two%0Alines"}));
    EXPECT_EQ(beeps, 1);
}

TEST_F(LogTableMenusTest, TypingSearchesAndShortcutsAct)
{
    SelectableTableView *view = window.logTable();
    view->setFocus();
    table.setLiveSearching(false);
    QTest::keyClicks(view, "me"); // no selection: backwards from the newest row
    EXPECT_EQ(window.searchField()->text(), "me");
    EXPECT_EQ(view->selectionModel()->selectedRows().value(0).row(), 5);
    QTest::keyClick(view, Qt::Key_Backspace);
    EXPECT_EQ(window.searchField()->text(), "m");
    QTest::keyClick(view, Qt::Key_Up); // the table's own: moves the selection
    EXPECT_EQ(view->selectionModel()->selectedRows().value(0).row(), 4);
    EXPECT_EQ(window.searchField()->text(), "m");
    QTest::keyClick(view, Qt::Key_Escape);
    EXPECT_EQ(window.searchField()->text(), "");
    EXPECT_FALSE(table.isLiveSearching());

    // Return finds the next match and hands the focus to the search field.
    window.searchField()->setText("message [03]");
    selectRows({3});
    QTest::keyClick(view, Qt::Key_Return);
    EXPECT_EQ(view->selectionModel()->selectedRows().value(0).row(), 0);
    EXPECT_EQ(beeps, 1);
    EXPECT_TRUE(window.searchField()->hasFocus());

    // Typing in the filter list searches the log too; Ctrl+Backspace there removes a filter, here clears.
    QTest::keyClicks(window.filterList()->table(), "w");
    EXPECT_EQ(window.searchField()->text(), "w");
    EXPECT_EQ(view->selectionModel()->selectedRows().value(0).row(), 2);
    QTest::keyClick(view, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(clears, 1);

    selectRows({2, 3, 5});
    // Offered straight to the controller: in the window the Edit menu's shortcuts take these keys first.
    auto ctrlShift = [&](Qt::Key key) {
        QKeyEvent event(QEvent::KeyPress, key, Qt::ControlModifier | Qt::ShiftModifier);
        return table.onKeyEventForTableView(view, &event);
    };
    EXPECT_TRUE(ctrlShift(Qt::Key_C));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), " two lines\n message 3\n message 5\n");
    table.copy();
    EXPECT_EQ(QGuiApplication::clipboard()->text().count(u'\n'), 3);
    EXPECT_TRUE(QGuiApplication::clipboard()->text().startsWith(
        "01-23 14:05:06.789\tcom.known\t1234\t-\tI\tTag\t two lines\t\n"));

    QSignalSpy viewed(&table, &LogTableController::viewTextRequested);
    EXPECT_TRUE(ctrlShift(Qt::Key_V));
    EXPECT_FALSE(ctrlShift(Qt::Key_X));
    table.dumpProcessTree();
    ASSERT_EQ(viewed.size(), 2);
    EXPECT_EQ(viewed[0][0].toString(), " two lines\n message 3\n message 5\n");
    EXPECT_TRUE(viewed[1][0].toString().contains("\n77      \u2500\u252C (1)  (process)\n\n1234    \u2500\u252C (5) "));
}

TEST_F(LogTableMenusTest, NotesGoToTheRightClickedRowOrEverySelectedRowAndAppNamesToTheProcess)
{
    SelectableTableView *view = window.logTable();
    auto note = [&](int row) { return table.model()->entryAt(ViewRow{row}).value(LogEntry::Note); };
    selectRows({1, 3, 4});
    rightClick(view, 3, LogEntry::Text);
    table.addNote(); // while several rows are selected: the right-clicked one only
    table.messageNoteSheet()->messageNote()->setText("one");
    table.messageNoteSheet()->addButton()->click();
    EXPECT_EQ(table.messageNoteSheet()->result(), 1);
    EXPECT_EQ(QStringList({note(1), note(3), note(4)}), QStringList({"", "one", ""}));

    table.onAddMultiNotes();
    EXPECT_TRUE(table.messageNoteSheet()->messageNote()->text().isEmpty());
    table.messageNoteSheet()->messageNote()->setText("all");
    table.messageNoteSheet()->addButton()->click();
    EXPECT_EQ(QStringList({note(1), note(3), note(4), note(5)}), QStringList({"all", "all", "all", ""}));

    rightClick(view, 1, LogEntry::App);
    table.userDefinedAppName();
    ASSERT_TRUE(table.appRenameSheet()->isVisible());
    EXPECT_EQ(table.appRenameSheet()->pidToRename(), "77");
    table.appRenameSheet()->appName()->setText("com.seventy.seven");
    table.appRenameSheet()->saveButton()->click();
    EXPECT_EQ(table.appRenameSheet()->result(), 1);
    EXPECT_EQ(table.model()->entryAt(ViewRow{1}).value(LogEntry::App), "com.seventy.seven");
    EXPECT_EQ(table.model()->entryAt(ViewRow{0}).value(LogEntry::App), ""); // another process
}
