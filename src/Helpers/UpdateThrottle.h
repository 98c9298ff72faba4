// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

// Decides when a stream of changes is announced: at most once per interval from the change path,
// and whatever is left over by a periodic flush (the owner's trailing timer). Times are seconds of a
// monotonic clock. Not thread-safe: the owner serialises every call (LogDatasource under its log lock).
class UpdateThrottle
{
public:
    explicit UpdateThrottle(double minIntervalSeconds = 0.25) : m_minInterval(minIntervalSeconds) {}

    // One change at `now`. True when it is to be announced right away: more than the interval has
    // passed since the last announcement. The pending count is then cleared.
    bool noteChange(double now);

    // Periodic tick: true when changes are pending; they count as announced at `now`.
    bool flush(double now);

    // Changes not yet announced.
    quint64 pending() const { return m_pending; }

private:
    double m_minInterval;
    quint64 m_pending = 0;
    bool m_announced = false; // no announcement yet: the first change goes out at once
    double m_lastAnnouncement = 0;
};
