// SPDX-License-Identifier: MIT
#include "Helpers/UpdateThrottle.h"

bool UpdateThrottle::noteChange(double now)
{
    ++m_pending;
    if (m_announced && now - m_lastAnnouncement <= m_minInterval)
        return false;
    m_pending = 0;
    m_announced = true;
    m_lastAnnouncement = now;
    return true;
}

bool UpdateThrottle::flush(double now)
{
    if (m_pending == 0)
        return false;
    m_pending = 0;
    m_announced = true;
    m_lastAnnouncement = now;
    return true;
}
