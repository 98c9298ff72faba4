// SPDX-License-Identifier: MIT
#include "Scenes/LogTableController.h"

#include "Helpers/Logger.h"
#include "Helpers/Settings.h"
#include "Scenes/LogCellDelegate.h"
#include "Scenes/SelectableTableView.h"

#include <QApplication>
#include <QFontMetrics>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QScrollBar>

#include <cmath>

LogTableController::LogTableController(SelectableTableView *table, QObject *parent)
    : QObject(parent)
    , m_table(table)
    , m_model(new LogTableModel(this))
{
    table->setModel(m_model);
    table->setItemDelegate(new LogCellDelegate(table));
    readSettings();
    applyDefaultColumnWidths();
    table->setAutosaveName(QString::fromLatin1(ColumnLayoutName));
    table->setMenuDelegate(this);

    connect(table->verticalScrollBar(), &QScrollBar::valueChanged, this, &LogTableController::onScrolled);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &LogTableController::onSelectionChanged);
}

LogTableController::~LogTableController()
{
    // The view may outlive this controller; it must not keep painting through a dead model.
    if (m_table && m_table->menuDelegate() == this)
        m_table->setMenuDelegate(nullptr);
    if (m_table && m_table->model() == m_model) {
        m_table->saveColumnLayout(); // a pending save would find no columns once the model is gone
        m_table->setModel(nullptr);
    }
}

void LogTableController::applyDefaultColumnWidths()
{
    const QFontMetrics metrics(m_model->appearance().font(u"D"));
    const int charWidth = qMax(1, metrics.horizontalAdvance(QLatin1Char('0')));
    QHeaderView *header = m_table->horizontalHeader();
    for (int column = 0; column < LogEntry::FieldCount; ++column) {
        const auto field = LogEntry::Field(column);
        header->resizeSection(column, LogTableModel::defaultColumnChars(field) * charWidth + 14);
    }
    // The running number is an identity, not something to read; the user can show it again.
    header->hideSection(LogEntry::Idx);
    // The message reads best as the last column, stretched to the window's edge.
    header->moveSection(header->visualIndex(LogEntry::Note), header->visualIndex(LogEntry::Text));
}

void LogTableController::showRows(QVector<LogEntry> rows)
{
    // Where the reader is, so a prune (rows vanishing above) does not move the text under their eyes.
    std::optional<EntryIdx> topIdx;
    int topOffset = 0;
    if (!m_scrollToBottom) {
        const int first = m_table->firstVisibleRow();
        topIdx = m_model->idxAt(ViewRow{first});
        if (topIdx)
            topOffset = -m_table->rowViewportPosition(first);
    }

    m_isReloading = true;
    const LogTableModel::Update update = m_model->setRows(std::move(rows));
    m_table->layoutNow();

    if (update == LogTableModel::Update::Pruned && topIdx) {
        const ViewRow row = m_model->rowForIdx(*topIdx);
        scrollRowToTop(row.isValid() ? row.value : 0, row.isValid() ? topOffset : 0);
    } else if (update == LogTableModel::Update::Reset && !m_filterUpdating && m_selectedLogMessage) {
        // A reset drops the view's selection; keep the user's entry selected where it is still shown.
        const ViewRow row = m_model->rowForIdx(*m_selectedLogMessage);
        if (row.isValid())
            m_table->selectionModel()->select(m_model->index(row.value, 0),
                                              QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    ViewRow restored;
    if (m_filterUpdating) {
        restored = restoreRowSelections();
        m_filterUpdating = false;
    }
    m_isReloading = false;
    followLog();
    // The restored row wins over following: centring it again, now with scroll notifications on,
    // turns auto-follow off unless the row is among the last ones.
    if (restored.isValid())
        centreRow(restored.value);
}

void LogTableController::scrollRowToTop(int row, int offset)
{
    m_table->verticalScrollBar()->setValue(m_table->verticalHeader()->sectionPosition(row) + offset);
}

void LogTableController::readSettings()
{
    applyAppearance(LogAppearance::fromSettings());
}

void LogTableController::fontsChanged()
{
    readSettings();
}

void LogTableController::setSearchText(const QString &text)
{
    m_model->setSearchText(text);
}

int LogTableController::rowHeightPixels() const
{
    const LogAppearance &appearance = m_model->appearance();
    // The row height is kept in points (1.5 x the font size) and converted with the screen's dpi.
    const double dpi = m_table ? m_table->logicalDpiY() : 96.0;
    const int fromPoints = int(std::ceil(appearance.fontHeight() * dpi / 72.0));
    const int fromMetrics = QFontMetrics(appearance.font(u"V")).height() + 2;
    return qMax(fromPoints, fromMetrics);
}

void LogTableController::applyAppearance(const LogAppearance &appearance)
{
    m_model->setAppearance(appearance);
    m_table->setRowHeight(rowHeightPixels());
    followLog();
}

void LogTableController::changeFontSize(bool bigger)
{
    QF_LOG(QStringLiteral("makeBigger:%1").arg(int(bigger)));
    setFontSize(LogAppearance::nextFontSize(m_model->appearance().fontPointSize(), bigger));
}

void LogTableController::defaultFontSize()
{
    setFontSize(LogAppearance::DefaultFontSize);
}

void LogTableController::setFontSize(double pointSize)
{
    Settings::setValue(SettingsKey::defaultFontSize, float(pointSize));
    applyAppearance(m_model->appearance().withPointSize(pointSize));
}

void LogTableController::changeScrollToBottom(bool on)
{
    if (on == m_scrollToBottom)
        return;
    m_scrollToBottom = on;
    emit scrollToBottomChanged(on);
}

void LogTableController::toggleAutoFollow()
{
    changeScrollToBottom(!m_scrollToBottom);
    followLog();
}

void LogTableController::followLog()
{
    if (m_scrollToBottom && m_model->rowCount() > 0)
        m_table->scrollToBottom();
}

void LogTableController::onScrolled()
{
    if (m_isReloading)
        return;
    changeScrollToBottom(LogTableModel::followAfterScroll(m_table->lastVisibleRow(), m_model->rowCount()));
}

void LogTableController::onSelectionChanged()
{
    if (m_filterUpdating || m_isReloading)
        return;
    const QItemSelectionModel *selection = m_table->selectionModel();
    const QModelIndexList rows = selection->selectedRows();
    if (rows.isEmpty()) {
        m_selectedLogMessage.reset();
        return;
    }
    // The row the user selected last: the current one when it is part of the selection.
    int row = selection->currentIndex().row();
    if (!selection->isRowSelected(row, {})) {
        row = -1;
        for (const QModelIndex &index : rows)
            row = qMax(row, index.row());
    }
    const std::optional<EntryIdx> idx = m_model->idxAt(ViewRow{row});
    if (!idx)
        return;
    m_selectedLogMessage = idx;
    changeScrollToBottom(row == m_model->rowCount() - 1);
}

void LogTableController::willPruneLogEvents()
{
    m_lastRow = m_table->firstVisibleRow();
    m_rowCount = m_model->rowCount();
}

void LogTableController::didPruneLogEvents()
{
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_scrollToBottom)
                return;
            const int newRow = LogTableModel::rowAfterPrune(m_model->rowCount(), m_rowCount, m_lastRow);
            QF_LOG(QStringLiteral("Old last row: %1, new last row: %2").arg(m_lastRow).arg(newRow));
            if (newRow >= 1 && newRow < m_model->rowCount()) {
                const int column = qMax(0, m_table->columnAt(0));
                m_table->scrollTo(m_model->index(newRow, column), QAbstractItemView::EnsureVisible);
            }
        },
        Qt::QueuedConnection);
}

ViewRow LogTableController::restoreRowSelections()
{
    if (m_model->rowCount() == 0 || !m_selectedLogMessage)
        return {};
    const ViewRow row = m_model->rowForIdx(*m_selectedLogMessage);
    if (!row.isValid())
        return {};

    QWidget *focus = QApplication::focusWidget();
    const int column = qMax(0, m_table->columnAt(0));
    QItemSelectionModel *selection = m_table->selectionModel();
    selection->setCurrentIndex(m_model->index(row.value, column),
                               QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);

    centreRow(row.value);

    if (focus && QApplication::focusWidget() != focus)
        focus->setFocus();
    return row;
}

void LogTableController::centreRow(int row)
{
    // Origin y = max(0, row y + (row height - visible height) / 2).
    m_table->layoutNow();
    const int rowY = m_table->verticalHeader()->sectionPosition(row);
    const int centred = rowY + (m_table->uniformRowHeight() - m_table->viewport()->height()) / 2;
    m_table->verticalScrollBar()->setValue(qMax(0, centred));
}

std::unique_ptr<QMenu> LogTableController::menuForTableView(SelectableTableView *, int, int)
{
    return nullptr;
}

bool LogTableController::onKeyEventForTableView(SelectableTableView *, QKeyEvent *)
{
    return false;
}

void LogTableController::onDoubleClick(SelectableTableView *)
{
}
