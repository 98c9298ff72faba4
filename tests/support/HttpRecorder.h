// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrlQuery>

class QTcpServer;
class QTcpSocket;

// One HTTP request as it arrived.
struct HttpRequest
{
    QByteArray method; // "GET", "POST"
    QByteArray target; // "/i?app_key=...", as sent (still percent-encoded)
    QByteArray contentType;
    QByteArray body;

    // One form parameter (from the query of a GET, the body of a POST), percent-decoded.
    QString param(const QString &name) const { return form().queryItemValue(name, QUrl::FullyDecoded); }
    bool has(const QString &name) const { return form().hasQueryItem(name); }
    QUrlQuery form() const
    {
        return QUrlQuery(QString::fromLatin1(method == "POST" ? body : target.mid(target.indexOf('?') + 1)));
    }
};

// A real HTTP server on a free port of 127.0.0.1 that records every request and answers each with
// 200 and {"result":"Success"}, closing the connection. stop() takes it off the network (connections are
// refused) and restart() brings it back on the same port. Lives on the test's thread.
class HttpRecorder : public QObject
{
    Q_OBJECT

public:
    HttpRecorder();

    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }
    void stop();
    bool restart();

    const QList<HttpRequest> &requests() const { return m_requests; }
    // Waits (running the event loop) until `count` requests have arrived.
    bool waitForRequests(qsizetype count) const;

private:
    void onReadable(QTcpSocket *socket);

    QTcpServer *m_server;
    quint16 m_port = 0;
    QList<HttpRequest> m_requests;
};
