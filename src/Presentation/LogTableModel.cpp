// SPDX-License-Identifier: MIT
#include "Presentation/LogTableModel.h"

#include <QBrush>
#include <QPoint>
#include <QThreadPool>

#include <algorithm>
#include <memory>
#include <utility>

LogTableModel::LogTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

std::optional<int> LogTableModel::droppedHead(const QVector<LogEntry> &next) const
{
    const qsizetype oldCount = m_rows.size();
    if (oldCount == 0)
        return 0;
    if (next.isEmpty())
        return std::nullopt;

    // Where the new snapshot starts inside the old one: the view is in idx order, so search by idx.
    qsizetype dropped = 0;
    if (!next.front().sameRecord(m_rows.front())) {
        const quint64 firstIdx = next.front().idx();
        const auto it = std::lower_bound(m_rows.cbegin(), m_rows.cend(), firstIdx,
                                         [](const LogEntry &entry, quint64 idx) { return entry.idx() < idx; });
        if (it == m_rows.cend() || !it->sameRecord(next.front()))
            return std::nullopt;
        dropped = it - m_rows.cbegin();
    }
    const qsizetype kept = oldCount - dropped;
    if (next.size() < kept)
        return std::nullopt;
    // Every kept row must be the same record in the same place; pointer compares, cheap next to a reset.
    for (qsizetype i = 0; i < kept; ++i) {
        if (!next[i].sameRecord(m_rows[dropped + i]))
            return std::nullopt;
    }
    return int(dropped);
}

void LogTableModel::releaseElsewhere(QVector<LogEntry> rows)
{
    // Under a flood a whole snapshot drops out between two reloads; freeing tens of thousands of
    // records (allocated by the reading thread) took the GUI thread 10-20 ms per reload.
    if (rows.isEmpty())
        return;
    auto holder = std::make_shared<QVector<LogEntry>>(std::move(rows));
    QThreadPool::globalInstance()->start([holder = std::move(holder)]() mutable { holder->clear(); });
}

LogTableModel::Update LogTableModel::setRows(QVector<LogEntry> rows)
{
    if (m_rows.isEmpty() && rows.isEmpty())
        return Update::None;

    const std::optional<int> dropped = droppedHead(rows);
    if (!dropped) {
        beginResetModel();
        QVector<LogEntry> old = std::exchange(m_rows, std::move(rows));
        endResetModel();
        releaseElsewhere(std::move(old));
        return Update::Reset;
    }

    Update result = Update::None;
    const qsizetype oldCount = m_rows.size();
    if (*dropped > 0) {
        // The kept rows are taken from the new snapshot: the dropped ones (and their frees) go to the
        // pool thread with the old one, and the old one, shared with the reader, is not detached here.
        beginRemoveRows({}, 0, *dropped - 1);
        QVector<LogEntry> old = std::exchange(m_rows, rows.first(oldCount - *dropped));
        endRemoveRows();
        releaseElsewhere(std::move(old));
        result = Update::Pruned;
    }
    const int kept = int(m_rows.size());
    if (rows.size() > kept) {
        beginInsertRows({}, kept, int(rows.size()) - 1);
        m_rows = std::move(rows);
        endInsertRows();
        if (result == Update::None)
            result = Update::Appended;
    } else {
        m_rows = std::move(rows);
    }
    // Rows already shown may have gained an app name or a note since the last tick.
    if (kept > 0)
        emit dataChanged(index(0, 0), index(kept - 1, LogEntry::FieldCount - 1));
    return result;
}

LogEntry LogTableModel::entryAt(ViewRow row) const
{
    if (row.value < 0 || row.value >= m_rows.size())
        return {};
    return m_rows[row.value];
}

std::optional<EntryIdx> LogTableModel::idxAt(ViewRow row) const
{
    if (row.value < 0 || row.value >= m_rows.size())
        return std::nullopt;
    return EntryIdx{m_rows[row.value].idx()};
}

ViewRow LogTableModel::rowForIdx(EntryIdx idx) const
{
    const auto it = std::lower_bound(m_rows.cbegin(), m_rows.cend(), idx.value,
                                     [](const LogEntry &entry, quint64 value) { return entry.idx() < value; });
    if (it != m_rows.cend() && it->idx() == idx.value)
        return ViewRow{int(it - m_rows.cbegin())};
    // Not in idx order (a merged or edited snapshot): fall back to a scan for the first match.
    const auto found = std::find_if(m_rows.cbegin(), m_rows.cend(),
                                    [&](const LogEntry &entry) { return entry.idx() == idx.value; });
    return found == m_rows.cend() ? ViewRow{} : ViewRow{int(found - m_rows.cbegin())};
}

void LogTableModel::setAppearance(const LogAppearance &appearance)
{
    m_appearance = appearance;
    emit appearanceChanged();
    repaintAll();
}

void LogTableModel::setSearchText(const QString &text)
{
    if (text == m_searchText)
        return;
    m_searchText = text;
    repaintAll();
}

void LogTableModel::repaintAll()
{
    if (!m_rows.isEmpty())
        emit dataChanged(index(0, 0), index(int(m_rows.size()) - 1, LogEntry::FieldCount - 1));
}

bool LogTableModel::followAfterScroll(int lastVisibleRow, int rowCount)
{
    return quint64(qint64(lastVisibleRow)) >= quint64(qint64(rowCount) - 5);
}

int LogTableModel::rowAfterPrune(int rowsNow, int rowsBefore, int firstVisibleBefore)
{
    return rowsNow - rowsBefore + firstVisibleBefore;
}

QString LogTableModel::copyText(const QList<LogEntry> &entries, std::optional<LogEntry::Field> key)
{
    if (entries.isEmpty())
        return {};
    QString out;
    QString line;
    for (const LogEntry &entry : entries) {
        line.clear();
        if (key) {
            entry.appendValue(*key, line);
        } else {
            for (int field = LogEntry::Time; field <= LogEntry::Note; ++field) {
                if (field != LogEntry::Time)
                    line += u'\t';
                entry.appendValue(LogEntry::Field(field), line);
            }
        }
        line.replace(u'\n', u' ');
        line.replace(u'\r', u' ');
        out += line;
        out += u'\n';
    }
    return out;
}

QString LogTableModel::columnTitle(LogEntry::Field field)
{
    switch (field) {
    case LogEntry::Idx:
        return QStringLiteral("#");
    case LogEntry::Time:
        return QStringLiteral("Time");
    case LogEntry::App:
        return QStringLiteral("Application");
    case LogEntry::Pid:
        return QStringLiteral("PID");
    case LogEntry::Tid:
        return QStringLiteral("TID");
    case LogEntry::Type:
        return QStringLiteral("Level");
    case LogEntry::Name:
        return QStringLiteral("Tag");
    case LogEntry::Text:
        return QStringLiteral("Message");
    case LogEntry::Note:
        return QStringLiteral("Note");
    }
    return {};
}

int LogTableModel::defaultColumnChars(LogEntry::Field field)
{
    switch (field) {
    case LogEntry::Idx:
        return 8;
    case LogEntry::Time:
        return 18; // a device line's "01-23 14:05:06.789"; the program's own longer stamps are rare
    case LogEntry::App:
        return 16;
    case LogEntry::Pid:
    case LogEntry::Tid:
        return 5;
    case LogEntry::Type:
        return 1; // one letter
    case LogEntry::Name:
        return 14;
    case LogEntry::Text:
        return 24; // the last column stretches to the window's edge from here
    case LogEntry::Note:
        return 1; // narrow until a note exists (NoteColumnChars)
    }
    return 10;
}

int LogTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int LogTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : LogEntry::FieldCount;
}

QVariant LogTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size() || index.column() >= LogEntry::FieldCount)
        return {};
    const LogEntry &entry = m_rows[index.row()];
    const auto field = LogEntry::Field(index.column());

    switch (role) {
    case Qt::DisplayRole:
        return entry.value(field);
    case Qt::ForegroundRole: {
        const QColor color = m_appearance.color(entry.value(LogEntry::Type));
        return color.isValid() ? QVariant(QBrush(color)) : QVariant();
    }
    case Qt::FontRole:
        return m_appearance.font(entry.value(LogEntry::Type));
    case Qt::TextAlignmentRole:
        return field == LogEntry::Type ? int(Qt::AlignCenter) : int(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::ToolTipRole: {
        // The whole message (or package) that the cell cuts; a huge one is cut here too, since a
        // tooltip of megabytes stalls the window (the message viewer shows it all).
        if (field != LogEntry::Text && field != LogEntry::App)
            return {};
        const QString value = entry.value(field);
        if (value.isEmpty())
            return {};
        return value.size() > MaxToolTipLength ? value.left(MaxToolTipLength) + QChar(0x2026) : value;
    }
    case HighlightRangeRole: {
        if (m_searchText.isEmpty())
            return {};
        const QString value = entry.value(field);
        const qsizetype start = value.indexOf(m_searchText, 0, Qt::CaseInsensitive);
        if (start < 0)
            return {};
        return QPoint(int(start), int(m_searchText.size()));
    }
    case EntryIdxRole:
        return QVariant::fromValue(entry.idx());
    default:
        return {};
    }
}

QVariant LogTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= LogEntry::FieldCount)
        return QAbstractTableModel::headerData(section, orientation, role);
    if (role == Qt::DisplayRole)
        return columnTitle(LogEntry::Field(section));
    if (role == Qt::TextAlignmentRole)
        return int(Qt::AlignLeft | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags LogTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}
