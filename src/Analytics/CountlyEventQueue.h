// SPDX-License-Identifier: MIT
#pragma once

#include "Analytics/CountlyEvent.h"

class CountlyDB;

// Events recorded but not yet sent, kept in the store's "Event" entity so they survive a restart.
// Same thread as its store.
class CountlyEventQueue
{
public:
    explicit CountlyEventQueue(CountlyDB &db);

    void recordEvent(const CountlyEvent &event);
    qsizetype count() const { return m_count; }
    // The waiting events as a JSON array (oldest first), removed from the queue; empty when none wait.
    QByteArray takeEvents();

private:
    CountlyDB &m_db;
    qsizetype m_count = 0;
};
