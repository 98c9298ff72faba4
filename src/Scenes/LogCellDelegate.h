// SPDX-License-Identifier: MIT
#pragma once

#include <QStyledItemDelegate>

class SelectableTableView;

// Paints log cells; a cell with a LogTableModel::HighlightRangeRole gets that range marked: yellow,
// or the base colour on a selected row of the focused table so the mark stays readable there.
class LogCellDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit LogCellDelegate(SelectableTableView *table);

    static QColor markColor(bool rowSelected, bool tableFocused, const QPalette &palette);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;

protected:
    // The application column is cut in the middle: a package's tail is what tells packages apart.
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;

private:
    SelectableTableView *m_table;
};
