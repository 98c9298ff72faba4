// SPDX-License-Identifier: MIT
#include "Scenes/SelectableTableView.h"

#include "Helpers/Settings.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>

SelectableTableView::SelectableTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setShowGrid(false);
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setCornerButtonEnabled(false);

    // Fixed sections: the header never measures rows, which keeps a million rows cheap.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setMinimumSectionSize(1);
    verticalHeader()->hide();

    QHeaderView *header = horizontalHeader();
    header->setSectionsMovable(true);
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setStretchLastSection(true);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);

    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(300);
    connect(&m_saveTimer, &QTimer::timeout, this, &SelectableTableView::saveColumnLayout);
    const auto layoutChanged = [this] {
        if (!m_restoringLayout && !m_autosaveName.isEmpty())
            m_saveTimer.start();
    };
    connect(header, &QHeaderView::sectionResized, this, layoutChanged);
    connect(header, &QHeaderView::sectionMoved, this, layoutChanged);
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::customContextMenuRequested, this, &SelectableTableView::showHeaderMenu);
}

void SelectableTableView::showHeaderMenu(const QPoint &pos)
{
    if (!model())
        return;
    auto menu = std::make_unique<QMenu>();
    QHeaderView *header = horizontalHeader();
    for (int visual = 0; visual < header->count(); ++visual) {
        const int column = header->logicalIndex(visual);
        QAction *item = menu->addAction(model()->headerData(column, Qt::Horizontal).toString());
        item->setCheckable(true);
        item->setChecked(!header->isSectionHidden(column));
        // The last visible column cannot be hidden: a table without columns cannot get them back.
        item->setEnabled(header->isSectionHidden(column) || header->count() - header->hiddenSectionCount() > 1);
        connect(item, &QAction::toggled, this, [this, column](bool on) { setColumnVisible(column, on); });
    }
    QMenu *shown = menu.release();
    shown->setAttribute(Qt::WA_DeleteOnClose);
    shown->popup(header->viewport()->mapToGlobal(pos));
}

void SelectableTableView::setColumnVisible(int column, bool visible)
{
    horizontalHeader()->setSectionHidden(column, !visible);
    saveColumnLayout();
}

SelectableTableView::~SelectableTableView()
{
    if (m_saveTimer.isActive())
        saveColumnLayout();
}

void SelectableTableView::setRowHeight(int pixels)
{
    verticalHeader()->setDefaultSectionSize(qMax(1, pixels));
}

int SelectableTableView::uniformRowHeight() const
{
    return verticalHeader()->defaultSectionSize();
}

int SelectableTableView::firstVisibleRow() const
{
    return rowAt(0);
}

int SelectableTableView::lastVisibleRow() const
{
    return rowAt(viewport()->height() - 1);
}

void SelectableTableView::setAutosaveName(const QString &name)
{
    m_autosaveName = name;
    restoreColumnLayout();
}

void SelectableTableView::saveColumnLayout()
{
    m_saveTimer.stop();
    // Without columns (no model, or the model already gone) there is nothing worth keeping.
    if (m_autosaveName.isEmpty() || !model() || horizontalHeader()->count() == 0)
        return;
    Settings::setValue(m_autosaveName, QString::fromLatin1(horizontalHeader()->saveState().toBase64()));
}

bool SelectableTableView::restoreColumnLayout()
{
    if (m_autosaveName.isEmpty() || !model())
        return false;
    const QByteArray state = QByteArray::fromBase64(Settings::value(m_autosaveName).toString().toLatin1());
    if (state.isEmpty())
        return false;
    m_restoringLayout = true;
    const bool restored = horizontalHeader()->restoreState(state);
    m_restoringLayout = false;
    return restored;
}

void SelectableTableView::showContextMenu(std::unique_ptr<QMenu> menu, const QPoint &globalPos)
{
    QMenu *shown = menu.release();
    shown->setAttribute(Qt::WA_DeleteOnClose);
    shown->popup(globalPos);
}

void SelectableTableView::contextMenuEvent(QContextMenuEvent *event)
{
    const QPoint pos = event->pos();
    m_rightClickedRow = rowAt(pos.y());
    m_rightClickedColumn = columnAt(pos.x());
    event->accept();
    if (m_rightClickedRow < 0)
        return;
    // A right click inside a multiple selection keeps it; elsewhere the clicked row alone is selected.
    if (selectionModel() && !selectionModel()->isRowSelected(m_rightClickedRow, rootIndex())) {
        const QModelIndex index = model()->index(m_rightClickedRow, qMax(0, m_rightClickedColumn), rootIndex());
        selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    if (!m_menuDelegate)
        return;
    std::unique_ptr<QMenu> menu = m_menuDelegate->menuForTableView(this, m_rightClickedColumn, m_rightClickedRow);
    if (menu)
        showContextMenu(std::move(menu), event->globalPos());
}

void SelectableTableView::keyPressEvent(QKeyEvent *event)
{
    if (m_menuDelegate && m_menuDelegate->onKeyEventForTableView(this, event)) {
        event->accept();
        return;
    }
    QTableView::keyPressEvent(event);
}

void SelectableTableView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::RightButton) {
        QTableView::mousePressEvent(event);
        return;
    }
    // A right press never clears the selection: off the rows it does nothing, on a selected row it keeps
    // the selection, on another row that row alone becomes selected.
    event->accept();
    const QPoint pos = event->position().toPoint();
    const int row = rowAt(pos.y());
    if (row < 0 || !selectionModel() || selectionModel()->isRowSelected(row, rootIndex()))
        return;
    const QModelIndex index = model()->index(row, qMax(0, columnAt(pos.x())), rootIndex());
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void SelectableTableView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::RightButton) {
        event->accept();
        return;
    }
    QTableView::mouseReleaseEvent(event);
}

void SelectableTableView::mouseDoubleClickEvent(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    m_clickedRow = rowAt(pos.y());
    m_clickedColumn = columnAt(pos.x());
    if (m_menuDelegate) {
        event->accept();
        m_menuDelegate->onDoubleClick(this);
        return;
    }
    QTableView::mouseDoubleClickEvent(event);
}

void SelectableTableView::focusInEvent(QFocusEvent *event)
{
    QTableView::focusInEvent(event);
    m_isFocused = true;
    emit focusChanged(true);
    viewport()->update(); // the highlight colour of selected rows depends on focus
}

void SelectableTableView::focusOutEvent(QFocusEvent *event)
{
    QTableView::focusOutEvent(event);
    m_isFocused = false;
    emit focusChanged(false);
    viewport()->update();
}

void SelectableTableView::scrollContentsBy(int dx, int dy)
{
    QTableView::scrollContentsBy(dx, dy);
    if (dy != 0)
        emit viewportScrolled();
}
