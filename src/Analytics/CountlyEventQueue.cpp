// SPDX-License-Identifier: MIT
#include "Analytics/CountlyEventQueue.h"

#include "Analytics/CountlyDB.h"

CountlyEventQueue::CountlyEventQueue(CountlyDB &db)
    : m_db(db)
    , m_count(db.events().size())
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
    QByteArray array("[");
    for (const CountlyDB::Stored &event : events) {
        if (array.size() > 1)
            array += ',';
        array += event.text;
    }
    array += ']';
    m_db.removeEvents(events.last().id);
    return array;
}
