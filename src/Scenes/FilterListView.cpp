// SPDX-License-Identifier: MIT
#include "Scenes/FilterListView.h"

#include "Scenes/SelectableTableView.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMouseEvent>
#include <QStandardItemModel>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// Announces a user selection before it happens, so "All Messages" can clear the others first.
class FilterList final : public SelectableTableView
{
public:
    explicit FilterList(FilterListView *owner)
        : SelectableTableView(owner)
        , m_owner(owner)
    {
    }

protected:
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex &index, const QEvent *event) const override
    {
        if (index.isValid() && event && (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress))
            emit m_owner->rowAboutToBeSelected(index.row());
        return SelectableTableView::selectionCommand(index, event);
    }

private:
    FilterListView *m_owner;
};

} // namespace

FilterListView::FilterListView(QWidget *parent)
    : QWidget(parent)
    , m_list(new FilterList(this))
    , m_model(new QStandardItemModel(this))
{
    m_list->setModel(m_model);
    m_list->setObjectName(QStringLiteral("filterList"));
    m_list->horizontalHeader()->hide();
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setRowHeight(m_list->fontMetrics().height() + 6);
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this, &FilterListView::onSelectionChanged);
    connect(m_list, &QTableView::doubleClicked, this, [this](const QModelIndex &index) { emit rowDoubleClicked(index.row()); });

    auto *segments = new QHBoxLayout;
    segments->setContentsMargins(0, 0, 0, 0);
    segments->setSpacing(0);
    const QString texts[3] = {QStringLiteral("+"), QStringLiteral("\u2212"), QStringLiteral("?")};
    const QString tips[3] = {tr("Add a filter"), tr("Remove the selected filters"), tr("Browse shared filters")};
    for (int i = 0; i < 3; ++i) {
        auto *button = new QToolButton(this);
        button->setText(texts[i]);
        button->setToolTip(tips[i]);
        button->setAutoRaise(false);
        button->setFixedSize(28, 24);
        button->setObjectName(QStringLiteral("filterSegment%1").arg(i));
        connect(button, &QToolButton::clicked, this, [this, i] { emit segmentClicked(i); });
        m_segments[i] = button;
        segments->addWidget(button);
    }
    segments->addStretch(1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_list, 1);
    layout->addLayout(segments);

    setFilterNames({});
}

void FilterListView::setFilterNames(const QStringList &sortedNames)
{
    m_quiet = true;
    m_model->clear();
    auto *all = new QStandardItem(tr("All Messages"));
    QFont bold = all->font();
    bold.setBold(true);
    all->setFont(bold);
    m_model->appendRow(all);
    for (const QString &name : sortedNames)
        m_model->appendRow(new QStandardItem(name));
    m_quiet = false;
}

int FilterListView::rowCount() const
{
    return m_model->rowCount();
}

QString FilterListView::rowText(int row) const
{
    const QStandardItem *item = m_model->item(row);
    return item ? item->text() : QString();
}

QList<int> FilterListView::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_list->selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void FilterListView::selectRow(int row)
{
    if (row < 0 || row >= m_model->rowCount())
        return;
    const QModelIndex index = m_model->index(row, 0);
    m_list->selectionModel()->select(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    m_list->selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    m_list->scrollTo(index);
}

void FilterListView::clearSelection()
{
    m_list->selectionModel()->clearSelection();
}

QToolButton *FilterListView::segmentButton(Segment segment) const
{
    return m_segments[segment];
}

void FilterListView::clickRow(int row, Qt::KeyboardModifiers modifiers)
{
    const QModelIndex index = m_model->index(row, 0);
    if (!index.isValid())
        return;
    emit rowAboutToBeSelected(row);
    const auto command = (modifiers & Qt::ControlModifier) ? QItemSelectionModel::Toggle : QItemSelectionModel::ClearAndSelect;
    m_list->selectionModel()->select(index, command | QItemSelectionModel::Rows);
    m_list->selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
}

void FilterListView::onSelectionChanged()
{
    if (!m_quiet)
        emit selectionChanged(selectedRows());
}
