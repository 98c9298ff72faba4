// SPDX-License-Identifier: MIT
#include "Scenes/LogTableSearch.h"

#include "Helpers/Logger.h"
#include "Presentation/LogSearch.h"
#include "Presentation/LogTableModel.h"
#include "Scenes/SelectableTableView.h"

#include <QApplication>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLineEdit>

LogTableSearch::LogTableSearch(SelectableTableView *table, LogTableModel *model)
    : m_table(table)
    , m_model(model)
{
}

void LogTableSearch::beep()
{
    if (m_beep)
        m_beep();
    else
        QApplication::beep();
}

std::optional<int> LogTableSearch::selectedRow() const
{
    // The row selected last: the current one when it is selected, else the highest selected.
    const QItemSelectionModel *selection = m_table->selectionModel();
    const int current = selection->currentIndex().row();
    if (current >= 0 && selection->isRowSelected(current, {}))
        return current;
    std::optional<int> highest;
    for (const QModelIndex &index : selection->selectedRows())
        highest = std::max(highest.value_or(-1), index.row());
    return highest;
}

void LogTableSearch::doSearch(const QString &text, int direction)
{
    const LogSearch::Result result = LogSearch::find(m_model->rows(), text, selectedRow(), direction);
    if (result.startIndex < 0) { // no rows or no text: only the highlight goes
        m_table->viewport()->update();
        return;
    }
    for (int i = 0; i < result.beeps; ++i)
        beep();
    if (!result.found()) {
        QF_LOG(QStringLiteral("No matches found! startIndex:%1, direction:%2, string:\"%3\"")
                   .arg(result.startIndex)
                   .arg(result.direction)
                   .arg(text));
        m_table->viewport()->update();
        return;
    }
    QF_LOG(QStringLiteral("found match: row:%1, key:%2, startIndex:%3, direction:%4, string:\"%5\"")
               .arg(result.row)
               .arg(LogEntry::keysArray().at(result.field))
               .arg(result.startIndex)
               .arg(result.direction)
               .arg(text));
    const QModelIndex index = m_model->index(result.row, qMax(0, m_table->columnAt(0)));
    m_table->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    m_table->scrollTo(index);
    m_table->viewport()->update();
}

void LogTableSearch::find()
{
    if (m_searchField) {
        m_searchField->setFocus(Qt::ShortcutFocusReason);
        m_searchField->selectAll();
    }
}

void LogTableSearch::findNext()
{
    const QString text = m_searchField ? m_searchField->text() : QString();
    if (!text.isEmpty())
        doSearch(text, 1);
    find();
}

void LogTableSearch::findPrevious()
{
    doSearch(m_searchField ? m_searchField->text() : QString(), -1);
}

bool LogTableSearch::isNavigationKey(int qtKey)
{
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F12)
        return true;
    switch (qtKey) {
    case Qt::Key_Home:
    case Qt::Key_End:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Tab:
    case Qt::Key_Backtab:
        return true;
    default:
        return false;
    }
}

void LogTableSearch::setSearchFieldText(const QString &text)
{
    if (m_searchField)
        m_searchField->setText(text);
}

bool LogTableSearch::handleTypedKey(QKeyEvent *event)
{
    const int key = event->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        findNext();
        return true;
    }
    if (isNavigationKey(key))
        return false;
    const QString current = m_searchField ? m_searchField->text() : QString();
    QString next;
    if (key == Qt::Key_Backspace || key == Qt::Key_Delete) {
        next = current.size() < 2 ? QString() : current.chopped(1);
    } else if (key == Qt::Key_Escape) {
        m_isLiveSearching = false;
    } else {
        // A key that types nothing (a lone modifier, Insert, ...) is the table's.
        if (event->text().isEmpty() || !event->text().front().isPrint())
            return false;
        const QChar typed(event->text().front().unicode() & 0xFF); // taken as an 8-bit code
        if (m_isLiveSearching) {
            next = current + typed;
        } else {
            m_isLiveSearching = true; // the first key after a pause starts a new search
            next = typed;
        }
    }
    setSearchFieldText(next);
    doSearch(next, 0);
    return true;
}

