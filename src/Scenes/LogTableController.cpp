// SPDX-License-Identifier: MIT
#include "Scenes/LogTableController.h"

#include "Helpers/Logger.h"
#include "Helpers/Settings.h"
#include "Helpers/LinkFinder.h"
#include "Presentation/ProcessTree.h"
#include "Scenes/AppRenamingSheet.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogCellDelegate.h"
#include "Scenes/LogTableMenus.h"
#include "Scenes/MessageNoteSheet.h"
#include "Scenes/SavedFiltersController.h"
#include "Scenes/SelectableTableView.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFontMetrics>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QStyle>

#include <cmath>

LogTableController::LogTableController(SelectableTableView *table, QObject *parent)
    : QObject(parent)
    , m_table(table)
    , m_model(new LogTableModel(this))
    , m_search(table, m_model)
{
    table->setModel(m_model);
    table->setItemDelegate(new LogCellDelegate(table));
    readSettings();
    applyDefaultColumnWidths();
    const int narrowNote = table->horizontalHeader()->sectionSize(LogEntry::Note);
    table->setAutosaveName(QString::fromLatin1(ColumnLayoutName));
    // A width the user gave the note column (saved with the layout) stays as it is.
    m_noteColumnNarrow = table->horizontalHeader()->sectionSize(LogEntry::Note) <= narrowNote;
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
    if (m_with.filterList && m_with.filterList->table()->menuDelegate() == this)
        m_with.filterList->table()->setMenuDelegate(nullptr);
    if (m_table && m_table->model() == m_model) {
        m_table->saveColumnLayout(); // a pending save would find no columns once the model is gone
        m_table->setModel(nullptr);
    }
}

int LogTableController::columnWidth(int chars) const
{
    const QFontMetrics metrics(m_model->appearance().font(u"D"));
    return chars * qMax(1, metrics.horizontalAdvance(QLatin1Char('0'))) + 14;
}

void LogTableController::applyDefaultColumnWidths()
{
    QHeaderView *header = m_table->horizontalHeader();
    // Sized to the content, but never narrower than the column's title, which would be cut unreadably.
    const int titleMargin = 2 * header->style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, header) + 6;
    for (int column = 0; column < LogEntry::FieldCount; ++column) {
        const auto field = LogEntry::Field(column);
        const int titleWidth = header->fontMetrics().horizontalAdvance(LogTableModel::columnTitle(field)) + titleMargin;
        header->resizeSection(column, qMax(columnWidth(LogTableModel::defaultColumnChars(field)), titleWidth));
    }
    // The running number is an identity, not something to read; the user can show it again.
    header->hideSection(LogEntry::Idx);
    // The message reads best as the last column, stretched to the window's edge.
    header->moveSection(header->visualIndex(LogEntry::Note), header->visualIndex(LogEntry::Text));
}

void LogTableController::widenNoteColumnOnFirstNote()
{
    if (!m_noteColumnNarrow)
        return;
    const auto &rows = m_model->rows();
    const bool anyNote = std::any_of(rows.cbegin(), rows.cend(), [](const LogEntry &e) { return !e.fieldIsEmpty(LogEntry::Note); });
    if (!anyNote)
        return;
    m_noteColumnNarrow = false;
    m_table->horizontalHeader()->resizeSection(LogEntry::Note, columnWidth(LogTableModel::NoteColumnChars));
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
    // Only a new view (a file, a filter) can bring notes; lines arriving live have none, so the
    // update path does not scan every row on each tick.
    if (update == LogTableModel::Update::Reset)
        widenNoteColumnOnFirstNote();
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

void LogTableController::setCollaborators(Collaborators collaborators)
{
    if (m_with.filterList && m_with.filterList->table()->menuDelegate() == this)
        m_with.filterList->table()->setMenuDelegate(nullptr);
    m_with = std::move(collaborators);
    m_search.setSearchField(m_with.searchField);
    m_search.setBeep(m_with.beep);
    if (m_with.filterList)
        m_with.filterList->table()->setMenuDelegate(this);
}

void LogTableController::openUrl(const QUrl &url)
{
    if (m_with.openUrl) {
        m_with.openUrl(url); // logs the address itself
        return;
    }
    QF_LOG(QStringLiteral("open url: %1").arg(url.toString()));
    QDesktopServices::openUrl(url);
}

// --- Search: LogTableSearch does it ---

void LogTableController::doSearch(const QString &text, int direction)
{
    m_search.doSearch(text, direction);
}

void LogTableController::search(const QString &text)
{
    m_search.doSearch(text, 0);
}

void LogTableController::find()
{
    m_search.find();
}

void LogTableController::findNext()
{
    m_search.findNext();
}

void LogTableController::findPrevious()
{
    m_search.findPrevious();
}

bool LogTableController::onKeyEventForTableView(SelectableTableView *table, QKeyEvent *event)
{
    const Qt::KeyboardModifiers held = event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    if (!held)
        return m_search.handleTypedKey(event);
    if (held != Qt::ControlModifier)
        return false;
    const bool shift = event->modifiers() & Qt::ShiftModifier;
    if (event->key() == Qt::Key_Backspace) {
        if (table == m_table) {
            if (m_with.clearLog)
                m_with.clearLog();
        } else if (m_with.filters) {
            m_with.filters->removeFilter();
        }
        return true;
    }
    if (shift && event->key() == Qt::Key_C) {
        copyMessageOnly();
        return true;
    }
    if (shift && event->key() == Qt::Key_V) {
        onViewText();
        return true;
    }
    return false;
}

// --- Copy ---

QList<int> LogTableController::selectedRowNumbers() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

QList<LogEntry> LogTableController::selectedEntries() const
{
    QList<LogEntry> entries;
    for (const int row : selectedRowNumbers())
        entries.append(m_model->entryAt(ViewRow{row}));
    return entries;
}

QString LogTableController::stringForSelectedRow(std::optional<LogEntry::Field> key) const
{
    return LogTableModel::copyText(selectedEntries(), key);
}

void LogTableController::copySelectedRow(std::optional<LogEntry::Field> key)
{
    const QString text = stringForSelectedRow(key);
    if (!text.isNull())
        QGuiApplication::clipboard()->setText(text);
}

void LogTableController::copy()
{
    copySelectedRow(std::nullopt);
}

void LogTableController::copyMessageOnly()
{
    copySelectedRow(LogEntry::Text);
}

// --- The right-clicked cell ---

LogEntry LogTableController::entryAtRow(int row) const
{
    return row >= 0 && row < m_model->rowCount() ? m_model->entryAt(ViewRow{row}) : LogEntry();
}

LogEntry LogTableController::rightClickedEntry() const
{
    return entryAtRow(m_table->rightClickedRow());
}

std::optional<LogEntry::Field> LogTableController::rightClickedField() const
{
    // The model's columns are the entry keys in key order, whatever order the header shows them in.
    const int column = m_table->rightClickedColumn();
    if (column < 0 || column >= LogEntry::FieldCount)
        return std::nullopt;
    return LogEntry::Field(column);
}

QString LogTableController::columnTitle(std::optional<LogEntry::Field> field) const
{
    return field ? LogTableModel::columnTitle(*field) : QString();
}

QString LogTableController::rightClickedCellValue() const
{
    const std::optional<LogEntry::Field> field = rightClickedField();
    return field ? rightClickedEntry().value(*field) : QString();
}

QList<QUrl> LogTableController::linksForRightClickedCell() const
{
    return LinkFinder::links(rightClickedCellValue());
}

void LogTableController::openRightClickedLink()
{
    const QList<QUrl> links = linksForRightClickedCell();
    if (links.isEmpty())
        m_search.beep();
    else
        openUrl(links.front());
}

void LogTableController::onSearchGoogle()
{
    const QByteArray query = QUrl::toPercentEncoding(rightClickedCellValue());
    openUrl(QUrl::fromEncoded("https://www.google.com/search?q=" + query, QUrl::StrictMode));
}

void LogTableController::onViewText()
{
    QString text = stringForSelectedRow(LogEntry::Text);
    if (text.isNull())
        text = rightClickedCellValue();
    if (!text.isEmpty())
        emit viewTextRequested(text);
}

void LogTableController::dumpProcessTree()
{
    emit viewTextRequested(ProcessTree::text(m_model->rows()));
}

// --- Notes and app names ---

void LogTableController::addNote()
{
    if (!m_noteSheet) {
        m_noteSheet = new MessageNoteSheet(m_with.sheetParent ? m_with.sheetParent : m_table->window());
        connect(m_noteSheet, &MessageNoteSheet::addMessageNote, this, &LogTableController::onAddMessageNote);
    }
    m_noteSheet->setMultiSelect(false);
    m_noteSheet->messageNote()->clear();
    m_noteSheet->open();
}

void LogTableController::onAddMultiNotes()
{
    addNote();
    m_noteSheet->setMultiSelect(true);
}

void LogTableController::onAddMessageNote()
{
    const QString note = m_noteSheet->messageNote()->text();
    const QList<LogEntry> entries = m_noteSheet->isMultiSelect() ? selectedEntries() : QList<LogEntry>{rightClickedEntry()};
    for (const LogEntry &entry : entries) {
        if (!entry.isNull())
            entry.setNote(note);
    }
    widenNoteColumnOnFirstNote();
    m_model->repaintAll();
    m_noteSheet->done(1);
}

void LogTableController::userDefinedAppName()
{
    const LogEntry entry = rightClickedEntry();
    if (entry.isNull())
        return;
    if (!m_renameSheet) {
        m_renameSheet = new AppRenamingSheet(m_with.sheetParent ? m_with.sheetParent : m_table->window());
        connect(m_renameSheet, &AppRenamingSheet::appRenameSave, this, &LogTableController::onAppRenameSave);
    }
    m_renameSheet->setPidToRename(entry.value(LogEntry::Pid));
    m_renameSheet->appName()->setText(entry.value(LogEntry::App));
    m_renameSheet->open();
}

void LogTableController::onAppRenameSave()
{
    const std::optional<QString> pid = m_renameSheet->pidToRename();
    if (!pid) {
        m_renameSheet->done(0);
        return; // no process to name: an empty pid must not name every line without one
    }
    if (m_with.setAppName)
        m_with.setAppName(m_renameSheet->appName()->text(), *pid);
    m_model->repaintAll();
    m_renameSheet->done(1);
}

// --- Filter commands ---

void LogTableController::applyQuickFilter()
{
    const std::optional<LogEntry::Field> field = rightClickedField();
    if (m_with.filters && field)
        m_with.filters->applyQuickFilter(columnTitle(field), LogEntry::keysArray().at(*field), rightClickedCellValue());
}

void LogTableController::filterBySelected()
{
    const std::optional<LogEntry::Field> field = rightClickedField();
    if (m_with.filters && field)
        m_with.filters->filterBySelected(columnTitle(field), LogEntry::keysArray().at(*field), rightClickedCellValue());
}

void LogTableController::updateFilterWithSelected(bool include)
{
    const std::optional<LogEntry::Field> field = rightClickedField();
    if (m_with.filters && field)
        m_with.filters->updateFilterWithSelected(LogEntry::keysArray().at(*field), rightClickedCellValue(), include);
}

void LogTableController::editFilter()
{
    if (m_with.filters)
        m_with.filters->editFilter();
}

void LogTableController::newFilterFromSelected()
{
    if (m_with.filters && m_with.filterList)
        m_with.filters->newFilterFromSelected(m_with.filterList->table()->rightClickedColumn(),
                                              m_with.filterList->table()->rightClickedRow());
}

void LogTableController::exportSelectedFilters()
{
    if (m_with.filters)
        m_with.filters->exportSelectedFilters();
}

// --- SelectableTableViewDelegate ---

std::unique_ptr<QMenu> LogTableController::menuForTableView(SelectableTableView *table, int column, int row)
{
    if (table != m_table)
        return LogTableMenus::filterListMenu(this);

    LogTableMenus::CellContext cell;
    const QList<LogEntry> selected = selectedEntries();
    cell.selectedRows = int(selected.size());
    const std::optional<LogEntry::Field> field =
        column >= 0 && column < LogEntry::FieldCount ? std::optional(LogEntry::Field(column)) : std::nullopt;
    if (field) {
        // The leftmost column shown, whatever the header's order and hidden columns.
        const QHeaderView *header = m_table->horizontalHeader();
        int shownBefore = 0;
        for (int visual = 0; visual < header->visualIndex(column); ++visual)
            shownBefore += header->isSectionHidden(header->logicalIndex(visual)) ? 0 : 1;
        cell.firstColumn = shownBefore == 0;
        cell.columnTitle = columnTitle(field);
        cell.key = LogEntry::keysArray().at(*field);
        if (selected.size() == 1)
            cell.value = selected.front().value(*field).trimmed();
        const QString clickedValue = entryAtRow(row).value(*field);
        cell.cellIsEmpty = clickedValue.isEmpty();
        cell.cellHasLink = *field == LogEntry::Text && !LinkFinder::links(clickedValue).isEmpty();
    }
    if (m_with.filters) {
        cell.filterListRow = m_with.filters->selectedRow();
        cell.filterName = m_with.filters->savedFilters().nameForRow(cell.filterListRow);
    }
    return LogTableMenus::logTableMenu(this, cell);
}

void LogTableController::onDoubleClick(SelectableTableView *table)
{
    if (table == m_table)
        onViewText();
    else
        editFilter();
}
