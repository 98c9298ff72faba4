// SPDX-License-Identifier: MIT
#include "Analytics/CountlyConnectionQueue.h"

#include "Analytics/CountlyDB.h"
#include "Helpers/Logger.h"

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace {

// A server that accepted the connection and then says nothing must not hold the queue forever.
constexpr int TransferTimeoutMs = 30000;

} // namespace

CountlyConnectionQueue::CountlyConnectionQueue(CountlyDB &db, QObject *parent)
    : QObject(parent)
    , m_db(db)
    , m_network(new QNetworkAccessManager(this))
    , m_unixTime([] { return QDateTime::currentSecsSinceEpoch(); })
{
}

CountlyConnectionQueue::~CountlyConnectionQueue()
{
    if (m_inFlight) {
        disconnect(m_inFlight, nullptr, this, nullptr);
        m_inFlight->abort();
    }
}

void CountlyConnectionQueue::setAppHost(const QString &host)
{
    m_appHost = host.trimmed();
    while (m_appHost.endsWith(QLatin1Char('/')))
        m_appHost.chop(1);
}

QByteArray CountlyConnectionQueue::urlEncode(const QByteArray &text)
{
    return text.toPercentEncoding();
}

QByteArray CountlyConnectionQueue::common() const
{
    return "app_key=" + m_appKey.toUtf8() + "&device_id=" + m_deviceId.toUtf8() +
           "&timestamp=" + QByteArray::number(m_unixTime());
}

void CountlyConnectionQueue::beginSession(const QByteArray &metricsJson)
{
    addToQueue(common() + "&sdk_version=" + SdkVersion + "&begin_session=1&metrics=" + urlEncode(metricsJson));
}

void CountlyConnectionQueue::updateSession(int duration)
{
    addToQueue(common() + "&session_duration=" + QByteArray::number(duration));
}

void CountlyConnectionQueue::endSession(int duration)
{
    addToQueue(common() + "&end_session=1&session_duration=" + QByteArray::number(duration));
}

void CountlyConnectionQueue::recordEvents(const QByteArray &eventsJson)
{
    addToQueue(common() + "&events=" + urlEncode(eventsJson));
}

void CountlyConnectionQueue::sendCrashReport(const QByteArray &crashJson)
{
    addToQueue(common() + "&sdk_version=" + SdkVersion + "&crash=" + urlEncode(crashJson));
}

void CountlyConnectionQueue::addToQueue(const QByteArray &post)
{
    m_db.addRequest(post);
    tick();
}

void CountlyConnectionQueue::tick()
{
    if (m_inFlight || m_appHost.isEmpty())
        return;
    const std::optional<CountlyDB::Stored> request = m_db.firstRequest();
    if (!request)
        return;
    QNetworkReply *reply = nullptr;
    if (request->text.contains("&crash=")) {
        QNetworkRequest post(QUrl(m_appHost + QStringLiteral("/i")));
        post.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/x-www-form-urlencoded"));
        post.setTransferTimeout(TransferTimeoutMs);
        reply = m_network->post(post, request->text);
    } else {
        QNetworkRequest get(QUrl::fromEncoded(m_appHost.toUtf8() + "/i?" + request->text));
        get.setTransferTimeout(TransferTimeoutMs);
        reply = m_network->get(get);
    }
    m_inFlight = reply;
    const qint64 id = request->id;
    connect(reply, &QNetworkReply::finished, this, [this, reply, id] { onFinished(reply, id); });
}

void CountlyConnectionQueue::onFinished(QNetworkReply *reply, qint64 id)
{
    reply->deleteLater();
    m_inFlight.clear();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError || status < 200 || status > 299) {
        // Kept first in the queue; the next tick tries again.
        if (!m_failing)
            QF_LOG(QStringLiteral("analytics: request not sent (%1), kept for later").arg(reply->errorString()));
        m_failing = true;
        return;
    }
    m_failing = false;
    m_db.removeRequest(id);
    tick();
}
