// SPDX-License-Identifier: MIT
#include "support/HttpRecorder.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

HttpRecorder::HttpRecorder()
    : m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &HttpRecorder::onNewConnection);
    if (m_server->listen(QHostAddress::LocalHost, 0))
        m_port = m_server->serverPort();
}

HttpRecorder::~HttpRecorder() = default;

void HttpRecorder::stop()
{
    m_server->close();
}

bool HttpRecorder::restart()
{
    return m_server->listen(QHostAddress::LocalHost, m_port);
}

bool HttpRecorder::waitForRequests(qsizetype count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return m_requests.size() >= count; }, timeoutMs);
}

void HttpRecorder::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadable(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void HttpRecorder::onReadable(QTcpSocket *socket)
{
    // The whole request is read at once: peek until the head and the announced body are there.
    const QByteArray data = socket->peek(socket->bytesAvailable());
    const qsizetype headEnd = data.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    const QList<QByteArray> lines = data.left(headEnd).split('\n');
    HttpRequest request;
    qsizetype contentLength = 0;
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    const QByteArray target = requestLine.value(1);
    const qsizetype question = target.indexOf('?');
    request.path = question < 0 ? target : target.left(question);
    request.query = question < 0 ? QByteArray() : target.mid(question + 1);
    for (const QByteArray &line : lines.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "content-length")
            contentLength = value.toLongLong();
        else if (name == "content-type")
            request.contentType = value;
    }
    if (data.size() < headEnd + 4 + contentLength)
        return;
    request.body = data.mid(headEnd + 4, contentLength);
    socket->read(headEnd + 4 + contentLength);
    m_requests.append(request);
    const QByteArray reply = R"({"result":"Success"})";
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                  QByteArray::number(reply.size()) + "\r\n\r\n" + reply);
    socket->disconnectFromHost();
}
