// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/UpdateThrottle.h"
#include "Log/BoundedBuffer.h"
#include "Log/LogEntry.h"

#include <QHash>
#include <QList>
#include <QString>

#include <mutex>
#include <span>

class Clock;
class Filter;

// The log of one datasource: the full log and the filtered view (two bounded buffers), duplicate
// removal across reconnects, the entries waiting for a process name, the catch-up of a whole-log
// filter and the update throttle.
//
// Its mutex is the datasource's "log lock". Every method takes it for its own duration only and calls
// nothing outside this class and the log's value types while holding it, so it never nests with the
// pid lock (ProcessNameMap's). Any thread.
class LogStore
{
public:
    // One parsed live line: the entry (null when the line gave none) and whether the filter took it.
    struct Line
    {
        LogEntry entry;
        bool matched = false;
    };
    struct CommitResult
    {
        bool announce = false; // the throttle lets this change out now
        int lookupsDue = 0;    // lines that each ask for a process-list lookup
        // The entries the run pruned from the full log and the view, still held: whoever drops this
        // list releases them, so the caller can do that off its own thread and outside the log lock.
        QList<LogEntry> pruned;
    };
    // A point in the log's history, for filtering a snapshot outside the lock.
    struct Snapshot
    {
        QList<LogEntry> entries;
        quint64 appendedTotal = 0;
        quint64 generation = 0;
    };

    // `clock` (not owned, outlives the store) times first sightings and the throttle.
    explicit LogStore(const Clock &clock);

    // Appends the entries of a run, in order, taking them out of `lines`: drops logcat's replay
    // after a reconnect, collects nameless pids, keeps the view in step.
    CommitResult commit(std::span<Line> lines, bool hasFilter);
    void append(const LogEntry &entry); // to the full log only

    // The serial of the session; a new one (not the last one seen) stops dropping the replay.
    void setDeviceId(const QString &serial);
    QString deviceId() const;
    void clearDeviceId();
    void setCapacity(quint64 capacity);
    // The stream ended: the next connection's replay is dropped again. Returns the device serial.
    QString endOfStream(bool resetDuplicates);

    void clear();                                     // both buffers
    void replaceWithFile(const QList<LogEntry> &entries); // unbounded
    void clearView();

    // Names every entry of `pid` (the user's name) and stops waiting for it; the number named.
    int nameAll(const QString &pid, const QString &name);
    // Names the entries waiting for `pid` (the device's answer) and stops waiting for it.
    void nameWaiting(const QString &pid, const QString &name);
    // Stops waiting for pids first seen before `time`: they are gone from the device.
    void giveUpWaitingBefore(double time);

    // Whole-log filtering: snapshot() outside any filtering, then commitFilter() adds what arrived
    // since (or filters everything again when the log was replaced or pruned past the snapshot).
    // Returns the view's size, or -1 with `error` set when the filter fails.
    Snapshot snapshot() const;
    qsizetype commitFilter(const Snapshot &from, QList<LogEntry> matches, const Filter &filter, QString *error);

    // The trailing announcement: true when changes are pending.
    bool flushThrottle();

    QList<LogEntry> all() const;
    QList<LogEntry> view() const;
    quint64 count() const;
    quint64 capacity() const;
    bool checkDates() const;
    QString lastDateReceived() const;
    quint64 numDuplicateRows() const;
    qsizetype waitingPidCount() const;

private:
    struct Waiting
    {
        double firstSeen = 0; // seconds of m_clock
        QList<LogEntry> entries;
    };

    const Clock &m_clock;
    mutable std::mutex m_mutex;
    BoundedBuffer m_logData;
    BoundedBuffer m_viewData;
    QHash<QString, Waiting> m_waiting;
    QString m_deviceId;
    QString m_lastDeviceId;
    LogEntry m_lastTimedEntry; // newest kept entry with a time: its "time" is lastDateReceived
    // While checking a replay: the lines kept with the last time (their fields but time and app), each
    // with how often it was kept. Filled when a stream ends.
    QHash<QByteArray, int> m_lastTimeLines;
    bool m_checkDates = true;
    quint64 m_numDuplicateRows = 0;
    UpdateThrottle m_throttle;
    quint64 m_appendedTotal = 0;     // entries ever added to m_logData: lets refiltering catch up
    quint64 m_contentGeneration = 0; // bumped when m_logData is emptied or replaced
};
