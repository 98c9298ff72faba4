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
    QByteArray path;   // "/i"
    QByteArray query;  // after "?", as sent (still percent-encoded)
    QByteArray body;
    QByteArray contentType;

    // The form parameters: the query of a GET, the body of a POST.
    QByteArray form() const { return method == "POST" ? body : query; }
    // One parameter, percent-decoded.
    QString param(const QString &name) const
    {
        return QUrlQuery(QString::fromLatin1(form())).queryItemValue(name, QUrl::FullyDecoded);
    }
    bool has(const QString &name) const { return QUrlQuery(QString::fromLatin1(form())).hasQueryItem(name); }
};

// A real HTTP server on a free port of 127.0.0.1 that records every request and answers each with
// 200 and {"result":"Success"}, closing the connection. stop() takes it off the network (connections are
// refused) and restart() brings it back on the same port. Lives on the test's thread.
class HttpRecorder : public QObject
{
    Q_OBJECT

public:
    HttpRecorder();
    ~HttpRecorder() override;

    quint16 port() const { return m_port; }
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }
    void stop();
    bool restart();

    const QList<HttpRequest> &requests() const { return m_requests; }
    // Waits (running the event loop) until `count` requests have arrived.
    bool waitForRequests(qsizetype count, int timeoutMs = 10000) const;

private:
    void onNewConnection();
    void onReadable(QTcpSocket *socket);

    QTcpServer *m_server;
    quint16 m_port = 0;
    QList<HttpRequest> m_requests;
};
