// SPDX-License-Identifier: MIT
#pragma once

#include "Analytics/CountlyEvent.h"
#include "Helpers/RepeatingTimer.h"

#include <QObject>

#include <chrono>
#include <functional>
#include <memory>

class Clock;
class CountlyConnectionQueue;
class CountlyDB;
class CountlyEventQueue;

// The analytics client: sessions (start, an update every 60 seconds, end), events sent in tens, and
// crash reports, all through a persistent queue sent one request at a time.
//
// Lives on one thread, the one it was created on (the analytics thread in the program, the test's own
// thread in tests); every call and the timer run there.
class Countly : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds SessionInterval{60000};
    // Waiting events are queued as one request as soon as this many wait.
    static constexpr int EventSendThreshold = 10;

    struct Environment
    {
        // The 60-second session timer; null means a QTimer.
        std::unique_ptr<RepeatingTimer> timer;
        // Measures session lengths; null means the system's monotonic clock.
        const Clock *clock = nullptr;
        // Unix time in seconds for the requests; null means the system clock.
        std::function<qint64()> unixTime;
    };

    // databasePath: the store file ("<data folder>/Countly.sqlite").
    Countly(const QString &databasePath, Environment environment, QObject *parent = nullptr);
    ~Countly() override;

    // Starts the session timer and queues a session start. host may be empty: requests wait.
    void start(const QString &appKey, const QString &host, const QString &deviceId, const QByteArray &metricsJson);
    void setHost(const QString &host);

    void recordEvent(const QString &key, int count = 1, std::optional<QMap<QString, QString>> segmentation = {},
                     std::optional<double> sum = {});
    // A crash report in the server's crash format; queued as a POST.
    void recordCrashReport(const QByteArray &crashJson);

    // The application stopped being the active one (or quits): waiting events, then a session end.
    void suspend();
    // It became active again: a new session start.
    void resume();
    bool isSuspended() const { return m_suspended; }

    // One expiry of the session timer.
    void onTimer();

    CountlyConnectionQueue &connectionQueue() { return *m_connectionQueue; }
    CountlyDB &db() { return *m_db; }

private:
    // Adds the time since the last accounting to the unsent length; returns its whole seconds and keeps
    // the fraction.
    int takeSessionSeconds();
    void queueWaitingEvents();

    std::unique_ptr<CountlyDB> m_db;
    std::unique_ptr<CountlyEventQueue> m_eventQueue;
    std::unique_ptr<CountlyConnectionQueue> m_connectionQueue; // after the store it sends from
    std::unique_ptr<RepeatingTimer> m_timer;
    const Clock *m_clock;
    std::function<qint64()> m_unixTime;
    QByteArray m_metrics;
    bool m_started = false;
    bool m_suspended = false;
    qint64 m_lastTimeMs = 0;
    double m_unsentSessionLength = 0; // seconds
};
