// SPDX-License-Identifier: MIT
#include "Analytics/Countly.h"

#include "Analytics/CountlyConnectionQueue.h"
#include "Analytics/CountlyDB.h"
#include "Analytics/CountlyEventQueue.h"
#include "Helpers/Clock.h"

#include <QDateTime>

Countly::Countly(const QString &databasePath, Environment environment, QObject *parent)
    : QObject(parent)
    , m_db(std::make_unique<CountlyDB>(databasePath))
    , m_eventQueue(std::make_unique<CountlyEventQueue>(*m_db))
    , m_connectionQueue(std::make_unique<CountlyConnectionQueue>(*m_db))
    , m_timer(environment.timer ? std::move(environment.timer) : std::make_unique<QtRepeatingTimer>())
    , m_clock(environment.clock ? environment.clock : &Clock::system())
    , m_unixTime(environment.unixTime ? std::move(environment.unixTime) : [] { return QDateTime::currentSecsSinceEpoch(); })
{
    m_connectionQueue->setUnixTime(m_unixTime);
    m_timer->onTimeout = [this] { onTimer(); };
}

Countly::~Countly()
{
    m_timer->stop();
}

void Countly::start(const QString &appKey, const QString &host, const QString &deviceId, const QByteArray &metricsJson)
{
    m_started = true;
    m_suspended = false;
    m_metrics = metricsJson;
    m_timer->start(SessionInterval);
    m_lastTimeMs = m_clock->nowMs();
    m_connectionQueue->setAppKey(appKey);
    m_connectionQueue->setAppHost(host);
    m_connectionQueue->setDeviceId(deviceId);
    m_connectionQueue->beginSession(metricsJson);
}

void Countly::setHost(const QString &host)
{
    m_connectionQueue->setAppHost(host);
    m_connectionQueue->tick();
}

int Countly::takeSessionSeconds()
{
    const qint64 now = m_clock->nowMs();
    m_unsentSessionLength += double(now - m_lastTimeMs) / 1000.0;
    m_lastTimeMs = now;
    const int whole = int(m_unsentSessionLength);
    m_unsentSessionLength -= whole;
    return whole;
}

void Countly::queueWaitingEvents()
{
    if (m_eventQueue->count() > 0)
        m_connectionQueue->recordEvents(m_eventQueue->takeEvents());
}

void Countly::onTimer()
{
    if (!m_started || m_suspended)
        return;
    m_connectionQueue->updateSession(takeSessionSeconds());
    queueWaitingEvents();
}

void Countly::recordEvent(const QString &key, int count, std::optional<QMap<QString, QString>> segmentation,
                          std::optional<double> sum)
{
    CountlyEvent event;
    event.key = key;
    event.count = count;
    event.segmentation = std::move(segmentation);
    event.sum = sum;
    event.timestamp = m_unixTime();
    m_eventQueue->recordEvent(event);
    if (m_eventQueue->count() >= EventSendThreshold)
        queueWaitingEvents();
}

void Countly::recordCrashReport(const QByteArray &crashJson)
{
    m_connectionQueue->sendCrashReport(crashJson);
}

void Countly::suspend()
{
    if (!m_started || m_suspended)
        return;
    m_suspended = true;
    queueWaitingEvents();
    m_connectionQueue->endSession(takeSessionSeconds());
}

void Countly::resume()
{
    if (!m_started || !m_suspended)
        return;
    m_lastTimeMs = m_clock->nowMs();
    m_connectionQueue->beginSession(m_metrics);
    m_suspended = false;
}
