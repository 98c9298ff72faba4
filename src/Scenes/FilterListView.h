// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <QWidget>

class QStandardItemModel;
class SelectableTableView;
class QToolButton;

// The list of saved filters beside the log: row 0 "All Messages", then the saved filter names in the
// order given, and under it the three-part control (add, remove, shared filters page). The list is a
// one-column SelectableTableView, so its right-clicked row, menu, keys and double clicks go to the same
// menu delegate as the log table's. Holds no decisions: it reports clicks and selection changes.
class FilterListView : public QWidget
{
    Q_OBJECT

public:
    enum Segment { AddSegment = 0, RemoveSegment = 1, SharedFiltersSegment = 2 };

    explicit FilterListView(QWidget *parent = nullptr);

    // Replaces the names after "All Messages"; the selection is cleared without a selectionChanged.
    void setFilterNames(const QStringList &sortedNames);
    int rowCount() const;
    QString rowText(int row) const;

    QList<int> selectedRows() const; // ascending
    void selectRow(int row);         // the row alone
    void clearSelection();

    SelectableTableView *table() const { return m_list; }
    QToolButton *segmentButton(Segment segment) const;

    // Clicking a row as the user does (for keyboard and tests alike).
    void clickRow(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier);

signals:
    // Sent before a row is selected by the user; the controller may change the selection.
    void rowAboutToBeSelected(int row);
    void selectionChanged(const QList<int> &rows);
    void segmentClicked(int segment);
    // Only without a menu delegate on the table; with one, the delegate gets the double click.
    void rowDoubleClicked(int row);

private:
    void onSelectionChanged();

    SelectableTableView *m_list = nullptr;
    QStandardItemModel *m_model = nullptr;
    QToolButton *m_segments[3] = {};
    bool m_quiet = false;
};
