// SPDX-License-Identifier: MIT
#pragma once

#include "Session/ProcessListAnswer.h"
#include "Session/ProcessNameMap.h"

#include <QString>

#include <atomic>
#include <optional>

class Clock;
class LogStore;

// Names the processes of a live session: the process map, the lookups of the device's process list
// (one at a time; asking while one runs asks for another when it ends) and what an answer does.
//
// The pid lock is the map's own mutex; it is never held while the log store is called (and so never
// together with the log lock). Any thread.
class ProcessNamer
{
public:
    // What an answer asks of the datasource.
    struct Outcome
    {
        ProcessListAnswer::Abort abort = ProcessListAnswer::Abort::None;
        // A lookup to start now, with its "-A" argument.
        std::optional<bool> lookupWithDashA;
    };

    // `clock` (not owned, outlives the namer) dates the lookups.
    explicit ProcessNamer(const Clock &clock);

    // Empty when the pid has no name.
    QString nameFor(const QString &pid) const { return m_names.nameFor(pid); }
    // See ProcessNameMap::nameForUtf8: lock-free for known pids; valid until the next call on this thread.
    QByteArrayView nameForUtf8(QByteArrayView pid) const { return m_names.nameForUtf8(pid); }
    void setUserName(const QString &pid, const QString &name) { m_names.setUserName(pid, name); }

    // `count` lines each asked for a lookup. Returns the "-A" argument of a lookup to start now;
    // while one runs, the requests are remembered and it asks again when it ends.
    std::optional<bool> requestLookups(int count = 1);
    // Applies one answer: names to the map and to the entries waiting in `store`, pids that stayed
    // unnamed since before the lookup given up; a short answer flips "-A" and asks again.
    Outcome applyAnswer(const std::optional<QString> &output, LogStore &store);
    // A lookup that ended without an answer (FAIL, error, lost device) ends the running lookup; the next
    // may start on a later request, at most once every 5 s while lookups keep failing.
    void lookupFailed(const QString &reason);

    // End of a stream: the device's names are forgotten and "-A" is tried first again.
    void endOfStream();
    // Clearing the log: the device's names and the lookup state are forgotten.
    void reset();

    bool addDashA() const { return m_addDashA.load(); }
    bool lookupRunning() const { return m_names.lookupRunning(); }

private:
    const Clock &m_clock;
    ProcessNameMap m_names; // holds the pid lock
    std::atomic<bool> m_addDashA{true};
};
