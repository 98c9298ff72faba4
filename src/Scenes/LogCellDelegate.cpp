// SPDX-License-Identifier: MIT
#include "Scenes/LogCellDelegate.h"

#include "Log/LogEntry.h"
#include "Presentation/LogTableModel.h"
#include "Scenes/SelectableTableView.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>

LogCellDelegate::LogCellDelegate(SelectableTableView *table)
    : QStyledItemDelegate(table)
    , m_table(table)
{
}

QColor LogCellDelegate::markColor(bool rowSelected, bool tableFocused, const QPalette &palette)
{
    if (rowSelected && tableFocused)
        return palette.color(QPalette::Active, QPalette::Base);
    return QColor(255, 255, 0);
}

void LogCellDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.column() == LogEntry::App)
        option->textElideMode = Qt::ElideMiddle;
}

void LogCellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QVariant range = index.data(LogTableModel::HighlightRangeRole);
    if (!range.isValid()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }

    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();

    // Background, selection and focus as usual, then the text by hand around the mark.
    // Tabs drawn as blanks: a tab's width in drawText is not what horizontalAdvance measures, which put
    // the mark beside its text in stack trace lines (they start with one). One for one, so offsets hold.
    QString text = opt.text;
    text.replace(u'\t', u' ');
    opt.text.clear();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
    const QRect textRect =
        style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget).adjusted(margin, 0, -margin, 0);
    if (textRect.width() <= 0)
        return;

    const bool selected = opt.state & QStyle::State_Selected;
    const bool focused = m_table && m_table->isFocused();
    const QPalette::ColorGroup group = (opt.state & QStyle::State_Active) ? QPalette::Active : QPalette::Inactive;
    const QColor textColor =
        opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);

    const QFontMetrics metrics(opt.font);
    const QString elided = metrics.elidedText(text, Qt::ElideRight, textRect.width());
    const qsizetype visible = elided == text ? text.size() : qMax<qsizetype>(0, elided.size() - 1);
    const int textWidth = metrics.horizontalAdvance(elided);
    int x = textRect.left();
    if (opt.displayAlignment & Qt::AlignHCenter)
        x += qMax(0, (textRect.width() - textWidth) / 2);

    painter->save();
    painter->setClipRect(textRect);
    painter->setFont(opt.font);
    painter->setPen(textColor);
    const QRect lineRect(x, textRect.top(), textRect.right() - x + 1, textRect.height());
    painter->drawText(lineRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, elided);

    const QPoint mark = range.toPoint(); // (start, length)
    const qsizetype start = mark.x();
    const qsizetype end = qMin<qsizetype>(start + mark.y(), visible);
    if (start < end) {
        const int markLeft = x + metrics.horizontalAdvance(text.left(start));
        const QString marked = text.mid(start, end - start);
        const QRect markRect(markLeft, textRect.top(), metrics.horizontalAdvance(marked), textRect.height());
        painter->fillRect(markRect, markColor(selected, focused, opt.palette));
        // On the mark the text must contrast with the mark, not with the level colour or the selection.
        const QColor markText =
            selected && focused ? opt.palette.color(QPalette::Active, QPalette::Text) : QColor(Qt::black);
        painter->setPen(markText);
        painter->drawText(markRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, marked);
    }
    painter->restore();
}
