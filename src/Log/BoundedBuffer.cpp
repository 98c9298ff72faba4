// SPDX-License-Identifier: MIT
#include "Log/BoundedBuffer.h"

#include <stdexcept>
#include <string>

BoundedBuffer::BoundedBuffer(quint64 capacity) : m_capacity(capacity)
{
    internalInit();
}

void BoundedBuffer::internalInit()
{
    m_pruneSize = DefaultPruneSize;
    m_dataArray = QList<LogEntry>();
    // Reserved up front so a live stream grows to its bound without reallocating.
    m_dataArray.reserve(qsizetype(m_capacity));
}

void BoundedBuffer::reset()
{
    m_dataArray.clear();
}

bool BoundedBuffer::addObject(const LogEntry &entry)
{
    m_dataArray.append(entry);
    return checkCapacity();
}

bool BoundedBuffer::addObject(LogEntry &&entry)
{
    m_dataArray.append(std::move(entry));
    return checkCapacity();
}

bool BoundedBuffer::addAllObjects(const QList<LogEntry> &entries)
{
    m_dataArray = entries;
    return checkCapacity();
}

bool BoundedBuffer::addObject(LogEntry &&entry, QList<LogEntry> *pruned)
{
    m_dataArray.append(std::move(entry));
    return checkCapacity(pruned);
}

bool BoundedBuffer::checkCapacity(QList<LogEntry> *pruned)
{
    if (m_capacity == 0)
        return false;
    if (quint64(m_dataArray.size()) <= m_capacity)
        return false;
    if (m_pruneSize > quint64(m_dataArray.size())) {
        throw std::out_of_range("BoundedBuffer: cannot prune " + std::to_string(m_pruneSize) + " entries from " +
                                std::to_string(m_dataArray.size()));
    }
    if (pruned) {
        // Handed over untouched: the records are cold, and whoever releases them pays for that.
        const auto begin = std::make_move_iterator(m_dataArray.begin());
        pruned->append(QList<LogEntry>(begin, begin + qsizetype(m_pruneSize)));
        m_dataArray.remove(0, qsizetype(m_pruneSize));
        return true;
    }
    // The oldest entries are cold: fetching them all at once lets the misses overlap, where the
    // releases one by one would wait for each in turn.
    for (qsizetype i = 0; i < qsizetype(m_pruneSize); ++i)
        m_dataArray.at(i).prefetch();
    m_dataArray.remove(0, qsizetype(m_pruneSize));
    return true;
}

QList<LogEntry> BoundedBuffer::itemsForPredicate(const Predicate &predicate) const
{
    if (m_dataArray.isEmpty())
        return {};
    if (!predicate)
        return m_dataArray;
    return itemsMatching(predicate);
}

LogEntry BoundedBuffer::lastObject() const
{
    return m_dataArray.isEmpty() ? LogEntry() : m_dataArray.constLast();
}
