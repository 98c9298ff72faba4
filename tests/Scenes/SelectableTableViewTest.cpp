// SPDX-License-Identifier: MIT
#include "Scenes/SelectableTableView.h"

#include "Helpers/Settings.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QMenu>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTest>

namespace {

// Records the menus it shows ("shown Copy") instead of popping them up.
class CapturingTableView : public SelectableTableView
{
public:
    QStringList *calls = nullptr;
    void showContextMenu(std::unique_ptr<QMenu> menu, const QPoint &) override
    {
        *calls << QStringLiteral("shown ") + menu->actions().value(0)->text();
    }
};

// The test is the table's delegate: it records what the table asks ("menu column,row", "key k",
// "double row,column") and answers as configured.
struct SelectableTableViewTest : ::testing::Test, SelectableTableViewDelegate
{
    QStandardItemModel model{10, 3};
    CapturingTableView table;
    bool handleKeys = false;
    bool giveMenu = true;
    QStringList calls;

    std::unique_ptr<QMenu> menuForTableView(SelectableTableView *, int column, int row) override
    {
        calls << QStringLiteral("menu %1,%2").arg(column).arg(row);
        if (!giveMenu)
            return nullptr;
        auto menu = std::make_unique<QMenu>();
        menu->addAction(QStringLiteral("Copy"));
        return menu;
    }
    bool onKeyEventForTableView(SelectableTableView *, QKeyEvent *event) override
    {
        calls << QStringLiteral("key %1").arg(event->key());
        return handleKeys;
    }
    void onDoubleClick(SelectableTableView *t) override
    {
        calls << QStringLiteral("double %1,%2").arg(t->clickedRow()).arg(t->clickedColumn());
    }

    void SetUp() override
    {
        table.setModel(&model);
        table.setRowHeight(20);
        table.resize(400, 400); // ten rows of 20 px leave empty space below the last row
        table.setMenuDelegate(this);
        table.calls = &calls;
        table.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));
    }
    QPoint cellCentre(int row, int column) const { return table.visualRect(model.index(row, column)).center(); }
    void rightClick(const QPoint &pos)
    {
        QTest::mousePress(table.viewport(), Qt::RightButton, {}, pos);
        QTest::mouseRelease(table.viewport(), Qt::RightButton, {}, pos);
        QContextMenuEvent event(QContextMenuEvent::Mouse, pos, table.viewport()->mapToGlobal(pos));
        QApplication::sendEvent(table.viewport(), &event);
    }
    QList<int> selectedRows() const
    {
        QList<int> rows;
        for (const QModelIndex &index : table.selectionModel()->selectedRows())
            rows.append(index.row());
        std::sort(rows.begin(), rows.end());
        return rows;
    }
};

} // namespace

TEST_F(SelectableTableViewTest, RightClickSelectsTheRowAloneKeepsAMultipleSelectionAndAsksForTheMenu)
{
    table.selectRow(1);
    rightClick(cellCentre(4, 2));
    EXPECT_EQ(table.rightClickedRow(), 4);
    EXPECT_EQ(table.rightClickedColumn(), 2);
    EXPECT_EQ(selectedRows(), QList<int>({4}));
    EXPECT_EQ(calls.join(';'), "menu 2,4;shown Copy");

    // Inside a multiple selection: kept. A delegate without a menu: nothing is shown.
    giveMenu = false;
    QTest::mouseClick(table.viewport(), Qt::LeftButton, Qt::ControlModifier, cellCentre(6, 0));
    rightClick(cellCentre(6, 1));
    EXPECT_EQ(selectedRows(), QList<int>({4, 6}));
    EXPECT_EQ(table.rightClickedRow(), 6);
    EXPECT_EQ(calls.join(';'), "menu 2,4;shown Copy;menu 1,6");

    // Below the last row: no menu asked for, the selection and no right-clicked row.
    rightClick(QPoint(30, 390));
    EXPECT_EQ(table.rightClickedRow(), -1);
    EXPECT_EQ(calls.size(), 3);
    EXPECT_EQ(selectedRows(), QList<int>({4, 6}));
}

TEST_F(SelectableTableViewTest, KeysGoToTheDelegateFirstDoubleClicksReportTheCellAndVisibleRowBounds)
{
    table.setFocus();
    table.setCurrentIndex(model.index(2, 0));
    handleKeys = true;
    QTest::keyClick(&table, Qt::Key_Down);
    EXPECT_EQ(table.currentIndex().row(), 2); // handled: the table did not move
    handleKeys = false;
    QTest::keyClick(&table, Qt::Key_Down);
    EXPECT_EQ(table.currentIndex().row(), 3);

    QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, cellCentre(5, 1));
    QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, QPoint(30, 390));
    const QString down = QString::number(Qt::Key_Down);
    EXPECT_TRUE(calls.join(';').startsWith(QStringLiteral("key %1;key %1;double 5,1;double -1,").arg(down))) // no row
        << calls.join(';').toStdString();

    // The focus flag follows focus events, announced each time.
    QSignalSpy focus(&table, &SelectableTableView::focusChanged);
    QFocusEvent in(QEvent::FocusIn, Qt::OtherFocusReason);
    QApplication::sendEvent(&table, &in);
    EXPECT_TRUE(table.isFocused());
    QFocusEvent out(QEvent::FocusOut, Qt::OtherFocusReason);
    QApplication::sendEvent(&table, &out);
    EXPECT_FALSE(table.isFocused());
    EXPECT_EQ(focus.count(), 2);

    // Ten rows of 20 px in 400 px: nothing in view is the last row.
    EXPECT_EQ(table.rowHeight(9), 20);
    EXPECT_EQ(table.firstVisibleRow(), 0);
    EXPECT_EQ(table.lastVisibleRow(), -1); // empty space under the last row
    table.resize(400, 100);
    EXPECT_TRUE(QTest::qWaitFor([&] { return table.lastVisibleRow() >= 0; }, 2000));
    EXPECT_LT(table.lastVisibleRow(), 9);
}

TEST(SelectableTableViewLayoutTest, ColumnLayoutIsSavedAndRestoredUnderItsName)
{
    const QString name = QStringLiteral("testTableLayout");
    Settings::remove(name);
    QStandardItemModel model(3, 4);
    {
        SelectableTableView table;
        table.setModel(&model);
        table.setAutosaveName(name);
        table.horizontalHeader()->resizeSection(0, 173);
        table.horizontalHeader()->moveSection(3, 0);
        // Width and order are saved shortly after the change.
        EXPECT_TRUE(QTest::qWaitFor([&] { return !Settings::value(name).toString().isEmpty(); }, 3000));
        table.setColumnVisible(2, false);
        // Changed just before closing: still saved.
        table.horizontalHeader()->resizeSection(0, 91);
    }
    SelectableTableView restored;
    restored.setModel(&model);
    restored.setAutosaveName(name);
    EXPECT_EQ(restored.horizontalHeader()->sectionSize(0), 91);
    EXPECT_EQ(restored.horizontalHeader()->logicalIndex(0), 3);
    EXPECT_TRUE(restored.horizontalHeader()->isSectionHidden(2));
    Settings::remove(name);
}
