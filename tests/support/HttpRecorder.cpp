// SPDX-License-Identifier: MIT
#include "support/HttpRecorder.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

HttpRecorder::HttpRecorder() : m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadable(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
    if (m_server->listen(QHostAddress::LocalHost, 0))
        m_port = m_server->serverPort();
}

void HttpRecorder::stop()
{
    m_server->close();
}

bool HttpRecorder::restart()
{
    return m_server->listen(QHostAddress::LocalHost, m_port);
}

bool HttpRecorder::waitForRequests(qsizetype count) const
{
    return QTest::qWaitFor([&] { return m_requests.size() >= count; }, 10000);
}

void HttpRecorder::onReadable(QTcpSocket *socket)
{
    // The whole request is read at once: peek until the head and the announced body are there.
    const QByteArray data = socket->peek(socket->bytesAvailable());
    const qsizetype bodyStart = data.indexOf("\r\n\r\n") + 4;
    if (bodyStart < 4)
        return;
    const QList<QByteArray> lines = data.left(bodyStart).trimmed().split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    HttpRequest request{requestLine.value(0), requestLine.value(1), {}, {}};
    qsizetype contentLength = 0;
    for (const QByteArray &line : lines.mid(1)) {
        const QByteArray name = line.left(line.indexOf(':')).trimmed().toLower();
        const QByteArray value = line.mid(line.indexOf(':') + 1).trimmed();
        if (name == "content-length")
            contentLength = value.toLongLong();
        else if (name == "content-type")
            request.contentType = value;
    }
    if (data.size() < bodyStart + contentLength)
        return;
    request.body = socket->read(bodyStart + contentLength).mid(bodyStart);
    m_requests.append(request);
    const QByteArray reply = R"({"result":"Success"})";
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                  QByteArray::number(reply.size()) + "\r\n\r\n" + reply);
    socket->disconnectFromHost();
}
