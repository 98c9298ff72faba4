// SPDX-License-Identifier: MIT
#include "Analytics/CountlyEventQueue.h"

#include "Analytics/CountlyDB.h"

CountlyEventQueue::CountlyEventQueue(CountlyDB &db)
    : m_db(db)
    , m_count(db.eventCount())
{
}

void CountlyEventQueue::recordEvent(const CountlyEvent &event)
{
    m_db.addEvent(event.toJson());
    m_count = qMin<qsizetype>(m_count + 1, CountlyDB::MaxEvents);
}

QByteArray CountlyEventQueue::takeEvents()
{
    const QList<CountlyDB::Stored> events = m_db.events();
    m_count = 0;
    if (events.isEmpty())
        return {};
    QByteArrayList texts;
    texts.reserve(events.size());
    for (const CountlyDB::Stored &event : events)
        texts.append(event.text);
    m_db.removeEvents(events.last().id);
    return '[' + texts.join(',') + ']';
}
