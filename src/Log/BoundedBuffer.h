// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>

#include <functional>

// Log entries in arrival order, bounded by block pruning: when an insertion leaves more than
// `capacity` entries, the oldest `pruneSize` are dropped in one operation (one block per check, however
// far over the bound). Capacity 0 means unbounded. Not locked: the owner serialises access.
class BoundedBuffer
{
public:
    static constexpr quint64 DefaultCapacity = 55000;
    static constexpr quint64 DefaultPruneSize = 1000;
    using Predicate = std::function<bool(const LogEntry &)>;

    BoundedBuffer() : BoundedBuffer(DefaultCapacity) {}
    explicit BoundedBuffer(quint64 capacity);

    qsizetype count() const { return m_dataArray.size(); }
    void reset(); // capacity and prune size stay

    // Both return checkCapacity(); addAllObjects replaces the content, it does not append.
    bool addObject(const LogEntry &entry);
    bool addObject(LogEntry &&entry);
    bool addAllObjects(const QList<LogEntry> &entries);
    // addObject that moves a pruned block to the end of `pruned` instead of releasing it here, so the
    // caller can release it on another thread.
    bool addObject(LogEntry &&entry, QList<LogEntry> *pruned);

    // True when it pruned. Throws std::out_of_range (deliberately unguarded) when a prune is due and
    // fewer than pruneSize entries are held, i.e. a capacity below the prune size: the caller does not
    // catch it, so such a setting fails loudly on its first prune instead of being clamped.
    bool checkCapacity() { return checkCapacity(nullptr); }

    // A snapshot. Without a predicate (empty std::function), all entries.
    QList<LogEntry> itemsForPredicate(const Predicate &predicate) const;
    template <typename P> QList<LogEntry> itemsMatching(const P &predicate) const
    {
        QList<LogEntry> out;
        for (const LogEntry &e : m_dataArray) {
            if (predicate(e))
                out.append(e);
        }
        return out;
    }
    LogEntry lastObject() const; // null entry when empty

    quint64 capacity() const { return m_capacity; }
    void setCapacity(quint64 capacity) { m_capacity = capacity; } // does not prune by itself
    quint64 pruneSize() const { return m_pruneSize; }
    void setPruneSize(quint64 pruneSize) { m_pruneSize = pruneSize; }
    // A cheap copy (implicitly shared).
    QList<LogEntry> dataArray() const { return m_dataArray; }
    void setDataArray(const QList<LogEntry> &data) { m_dataArray = data; }

private:
    void internalInit();
    bool checkCapacity(QList<LogEntry> *pruned);

    quint64 m_capacity;
    quint64 m_pruneSize = DefaultPruneSize;
    QList<LogEntry> m_dataArray;
};
