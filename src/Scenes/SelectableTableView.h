// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QTableView>
#include <QTimer>

#include <memory>

class QMenu;
class SelectableTableView;

// What a SelectableTableView asks of its owner, always before doing anything itself.
class SelectableTableViewDelegate
{
public:
    virtual ~SelectableTableViewDelegate() = default;

    // The context menu for the right-clicked cell (the row is already selected); null for none.
    // The table shows the menu and deletes it once it closes.
    virtual std::unique_ptr<QMenu> menuForTableView(SelectableTableView *table, int column, int row) = 0;
    // Every key press; true when handled, so the table does not move its selection for it.
    virtual bool onKeyEventForTableView(SelectableTableView *table, QKeyEvent *event) = 0;
    // A double click anywhere in the table; clickedRow()/clickedColumn() tell the cell (-1 for none).
    virtual void onDoubleClick(SelectableTableView *table) = 0;
};

// A table with uniform rows that remembers its right-clicked cell, tracks its focus, hands key presses
// and double clicks to its menu delegate first, and can persist its column layout.
class SelectableTableView : public QTableView
{
    Q_OBJECT

public:
    explicit SelectableTableView(QWidget *parent = nullptr);
    ~SelectableTableView() override;

    // Weak: the owner clears it (or passes null) before it goes away.
    void setMenuDelegate(SelectableTableViewDelegate *delegate) { m_menuDelegate = delegate; }
    SelectableTableViewDelegate *menuDelegate() const { return m_menuDelegate; }

    int rightClickedRow() const { return m_rightClickedRow; }
    int rightClickedColumn() const { return m_rightClickedColumn; }
    int clickedRow() const { return m_clickedRow; }
    int clickedColumn() const { return m_clickedColumn; }
    bool isFocused() const { return m_isFocused; }

    // Every row gets this height in pixels (fixed sections: no per-row measuring).
    void setRowHeight(int pixels);
    int uniformRowHeight() const;

    // Applies pending row changes to the layout and scroll ranges now rather than at the next event.
    void layoutNow() { executeDelayedItemsLayout(); }

    // Rows at the top-left and bottom-left corners of the visible area; -1 where no row lies.
    int firstVisibleRow() const;
    int lastVisibleRow() const;

    // Restores the horizontal header layout stored under `name` (when there is one) and saves it
    // there shortly after every change of column order, width or visibility (and when destroyed).
    void setAutosaveName(const QString &name);
    QString autosaveName() const { return m_autosaveName; }
    void saveColumnLayout();
    // Shows or hides a column and saves the layout (the header's context menu does the same).
    void setColumnVisible(int column, bool visible);
    bool restoreColumnLayout();

    // Pops up `menu` at a global position and deletes it when it closes. Virtual so tests can
    // capture menus without opening a popup.
    virtual void showContextMenu(std::unique_ptr<QMenu> menu, const QPoint &globalPos);

signals:
    void focusChanged(bool focused);
    // The visible area moved (scroll, resize, rows inserted above).
    void viewportScrolled();

protected:
    void contextMenuEvent(QContextMenuEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    void showHeaderMenu(const QPoint &pos);

    SelectableTableViewDelegate *m_menuDelegate = nullptr;
    int m_rightClickedRow = -1;
    int m_rightClickedColumn = -1;
    int m_clickedRow = -1;
    int m_clickedColumn = -1;
    bool m_isFocused = false;
    QString m_autosaveName;
    bool m_restoringLayout = false;
    QTimer m_saveTimer; // a dragged column edge changes its width many times a second
};
