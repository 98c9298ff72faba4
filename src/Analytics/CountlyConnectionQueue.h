// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

class CountlyDB;
class QNetworkAccessManager;
class QNetworkReply;

// Builds the requests of the analytics write protocol, keeps them in the store's "Data" entity and sends
// them one at a time: a crash report as a POST to <host>/i with the parameters as body, everything else
// as a GET to <host>/i?<parameters>. A request leaves the queue only when the server answered it with
// success; on failure it stays first and goes again at the next tick. With no host nothing is sent.
//
// Lives on one thread with its store; the network replies arrive there too.
class CountlyConnectionQueue : public QObject
{
    Q_OBJECT

public:
    static constexpr const char *SdkVersion = "15.06.01";

    explicit CountlyConnectionQueue(CountlyDB &db, QObject *parent = nullptr);
    ~CountlyConnectionQueue() override;

    void setAppKey(const QString &appKey) { m_appKey = appKey; }
    // The server's base address ("http://host:port"); empty stops sending.
    void setAppHost(const QString &host);
    void setDeviceId(const QString &deviceId) { m_deviceId = deviceId; }
    // Unix time in seconds for the requests' timestamp; the system clock unless a test sets one.
    void setUnixTime(std::function<qint64()> unixTime) { m_unixTime = std::move(unixTime); }

    // Each queues one request and runs tick(). JSON arguments are URL-encoded here.
    void beginSession(const QByteArray &metricsJson);
    void updateSession(int duration);
    void endSession(int duration);
    void recordEvents(const QByteArray &eventsJson);
    void sendCrashReport(const QByteArray &crashJson);

    // Sends the oldest request unless one is in flight or nothing waits.
    void tick();
    bool isSending() const { return !m_inFlight.isNull(); }

    // Percent-escapes everything but letters, digits and "-._~", which covers the characters never
    // allowed in a URL and the set "!*'();:@&=+$,/?%#[]". UTF-8.
    static QByteArray urlEncode(const QByteArray &text);

private:
    QByteArray common() const;
    void addToQueue(const QByteArray &post);
    void onFinished(QNetworkReply *reply, qint64 id);

    CountlyDB &m_db;
    QNetworkAccessManager *m_network;
    QPointer<QNetworkReply> m_inFlight;
    QString m_appKey;
    QString m_appHost;
    QString m_deviceId;
    std::function<qint64()> m_unixTime;
    bool m_failing = false; // the last attempt failed: log only the first failure of an outage
};
