// SPDX-License-Identifier: MIT
#include "Session/LogStore.h"

#include "Filters/Filter.h"
#include "Helpers/Clock.h"
#include "Helpers/Logger.h"

#include <optional>

namespace {

// What identifies a replayed line besides its time: the app is filled in later and may differ.
QByteArray replayKey(const LogEntry &entry)
{
    QByteArray key;
    for (LogEntry::Field f : {LogEntry::Pid, LogEntry::Tid, LogEntry::Type, LogEntry::Name, LogEntry::Text}) {
        key += entry.utf8Value(f);
        key += '\x1f';
    }
    return key;
}

} // namespace

LogStore::LogStore(const Clock &clock) : m_clock(clock) {}

LogStore::CommitResult LogStore::commit(std::span<Line> lines, bool hasFilter)
{
    // The clock only for what needs it: a nameless pid's first sighting and the throttle. Most runs
    // under a filter need neither.
    std::optional<double> nowCache;
    const auto now = [&] {
        if (!nowCache)
            nowCache = m_clock.nowSeconds();
        return *nowCache;
    };
    // The newest line with a time becomes lastDateReceived if it is kept: after the first kept line
    // nothing more is dropped, so no other line can be the newest kept one.
    size_t newestTimed = lines.size();
    for (size_t i = lines.size(); i-- > 0;) {
        if (!lines[i].entry.isNull() && !lines[i].entry.fieldIsEmpty(LogEntry::Time)) {
            newestTimed = i;
            break;
        }
    }
    CommitResult result;
    std::lock_guard lock(m_mutex);
    bool changed = false;
    bool newestKept = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        Line &line = lines[i];
        if (line.entry.isNull())
            continue;
        if (m_checkDates && !line.entry.fieldIsEmpty(LogEntry::Time)) {
            // logcat replays its whole buffer on every connection: drop what was shown already.
            const QString time = line.entry.value(LogEntry::Time);
            const QString last = m_lastTimedEntry.value(LogEntry::Time);
            if (!last.isEmpty() && time < last) {
                ++m_numDuplicateRows;
                continue;
            }
            // Departure: a replayed line with exactly the last time used to be kept, so the last lines
            // before an unplug showed twice. One that was kept already is dropped, as often as it was.
            if (time == last && !m_lastTimeLines.isEmpty()) {
                const auto seen = m_lastTimeLines.find(replayKey(line.entry));
                if (seen != m_lastTimeLines.end() && *seen > 0) {
                    --*seen;
                    ++m_numDuplicateRows;
                    continue;
                }
            }
            m_checkDates = false;
            m_lastTimeLines.clear();
            if (m_numDuplicateRows != 0)
                QF_LOG(QStringLiteral("removed %1 duplicate rows. lastDate:%2").arg(m_numDuplicateRows).arg(last));
        }
        if (line.entry.fieldIsEmpty(LogEntry::App)) {
            const QString pid = line.entry.value(LogEntry::Pid);
            auto it = m_waiting.find(pid);
            if (it == m_waiting.end())
                it = m_waiting.insert(pid, Waiting{now(), {}});
            it->entries.append(line.entry);
            if (it->entries.size() >= 2) // from its second nameless line on, a pid asks
                ++result.lookupsDue;
        }
        if (line.matched)
            m_viewData.addObject(LogEntry(line.entry), &result.pruned);
        bool pruned = false;
        if (i == newestTimed) {
            newestKept = true;
            pruned = m_logData.addObject(LogEntry(line.entry), &result.pruned);
        } else {
            pruned = m_logData.addObject(std::move(line.entry), &result.pruned); // the run's reference, no count
        }
        ++m_appendedTotal;
        // A non-matching line changes nothing shown, unless it pruned the full log (every row moves).
        if (!hasFilter || line.matched || pruned)
            changed = true;
    }
    // Keeping the handle spares a string per line.
    if (newestKept)
        m_lastTimedEntry = lines[newestTimed].entry;
    if (changed)
        result.announce = m_throttle.noteChange(now());
    return result;
}

void LogStore::append(const LogEntry &entry)
{
    std::lock_guard lock(m_mutex);
    m_logData.addObject(entry);
    ++m_appendedTotal;
}

void LogStore::setDeviceId(const QString &serial)
{
    std::lock_guard lock(m_mutex);
    m_deviceId = serial;
    if (!serial.isEmpty() && serial != m_lastDeviceId) {
        QF_LOG(QStringLiteral("device changed: %1 (from %2)").arg(serial, m_lastDeviceId));
        // A new device replays nothing that was already shown.
        m_checkDates = false;
        m_lastDeviceId = serial;
    }
}

QString LogStore::deviceId() const
{
    std::lock_guard lock(m_mutex);
    return m_deviceId;
}

void LogStore::clearDeviceId()
{
    std::lock_guard lock(m_mutex);
    m_deviceId.clear();
}

void LogStore::setCapacity(quint64 capacity)
{
    std::lock_guard lock(m_mutex);
    m_logData.setCapacity(capacity);
}

QString LogStore::endOfStream(bool resetDuplicates)
{
    std::lock_guard lock(m_mutex);
    if (resetDuplicates) {
        m_checkDates = true;
        m_numDuplicateRows = 0;
        // The device's lines of the last time stamp are at the end of the log (system messages, which
        // carry a local time of another form, may follow them).
        m_lastTimeLines.clear();
        const QString last = m_lastTimedEntry.value(LogEntry::Time);
        const QList<LogEntry> &entries = m_logData.dataArray();
        for (qsizetype i = entries.size(); !last.isEmpty() && i-- > 0;) {
            const LogEntry &entry = entries[i];
            if (entry.fieldEquals(LogEntry::Type, u"QF") || entry.fieldIsEmpty(LogEntry::Time))
                continue;
            if (!entry.fieldEquals(LogEntry::Time, last))
                break;
            ++m_lastTimeLines[replayKey(entry)];
        }
    }
    return m_deviceId;
}

void LogStore::clear()
{
    std::lock_guard lock(m_mutex);
    m_logData.reset();
    m_viewData.reset();
    ++m_contentGeneration;
}

void LogStore::replaceWithFile(const QList<LogEntry> &entries)
{
    std::lock_guard lock(m_mutex);
    m_logData.setCapacity(0); // a file is shown whole
    m_logData.addAllObjects(entries);
    ++m_contentGeneration;
}

void LogStore::clearView()
{
    std::lock_guard lock(m_mutex);
    m_viewData.reset();
}

int LogStore::nameAll(const QString &pid, const QString &name)
{
    std::lock_guard lock(m_mutex);
    m_waiting.remove(pid);
    int n = 0;
    for (const LogEntry &entry : m_logData.dataArray()) {
        if (entry.fieldEquals(LogEntry::Pid, pid)) {
            entry.setApp(name);
            ++n;
        }
    }
    return n;
}

void LogStore::nameWaiting(const QString &pid, const QString &name)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_waiting.constFind(pid);
    if (it == m_waiting.cend())
        return;
    for (const LogEntry &entry : it->entries)
        entry.setApp(name);
    m_waiting.erase(it);
}

void LogStore::giveUpWaitingBefore(double time)
{
    std::lock_guard lock(m_mutex);
    for (auto it = m_waiting.begin(); it != m_waiting.end();) {
        if (it->firstSeen < time)
            it = m_waiting.erase(it);
        else
            ++it;
    }
}

LogStore::Snapshot LogStore::snapshot() const
{
    std::lock_guard lock(m_mutex);
    return {m_logData.dataArray(), m_appendedTotal, m_contentGeneration};
}

qsizetype LogStore::commitFilter(const Snapshot &from, QList<LogEntry> matches, const Filter &filter, QString *error)
{
    std::lock_guard lock(m_mutex);
    const QList<LogEntry> current = m_logData.dataArray();
    const quint64 added = m_appendedTotal - from.appendedTotal;
    if (m_contentGeneration != from.generation || added > quint64(current.size())) {
        // Replaced or pruned past the snapshot meanwhile: filter the log as it is now.
        matches = filterEntries(current, filter, error);
    } else {
        for (qsizetype i = current.size() - qsizetype(added); i < current.size() && error->isEmpty(); ++i) {
            if (filter.matches(current[i], error))
                matches.append(current[i]);
        }
    }
    if (!error->isEmpty())
        return -1;
    m_viewData.addAllObjects(matches);
    return m_viewData.count();
}

bool LogStore::flushThrottle()
{
    const double now = m_clock.nowSeconds();
    std::lock_guard lock(m_mutex);
    return m_throttle.flush(now);
}

QList<LogEntry> LogStore::all() const
{
    std::lock_guard lock(m_mutex);
    return m_logData.dataArray();
}

QList<LogEntry> LogStore::view() const
{
    std::lock_guard lock(m_mutex);
    return m_viewData.dataArray();
}

quint64 LogStore::count() const
{
    std::lock_guard lock(m_mutex);
    return quint64(m_logData.count());
}

quint64 LogStore::capacity() const
{
    std::lock_guard lock(m_mutex);
    return m_logData.capacity();
}

bool LogStore::checkDates() const
{
    std::lock_guard lock(m_mutex);
    return m_checkDates;
}

QString LogStore::lastDateReceived() const
{
    std::lock_guard lock(m_mutex);
    return m_lastTimedEntry.value(LogEntry::Time);
}

quint64 LogStore::numDuplicateRows() const
{
    std::lock_guard lock(m_mutex);
    return m_numDuplicateRows;
}

qsizetype LogStore::waitingPidCount() const
{
    std::lock_guard lock(m_mutex);
    return m_waiting.size();
}
