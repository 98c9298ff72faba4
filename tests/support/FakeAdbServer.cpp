// SPDX-License-Identifier: MIT
#include "support/FakeAdbServer.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Settings.h"

#include <QByteArrayView>
#include <QTcpServer>
#include <QTcpSocket>

FakeAdbServer::FakeAdbServer() : m_server(new QTcpServer(this))
{
    m_server->listen(QHostAddress::LocalHost, 0);
    QObject::connect(m_server, &QTcpServer::newConnection, this, &FakeAdbServer::onNewConnection);
}

FakeAdbServer::~FakeAdbServer()
{
    for (Connection &c : m_connections) {
        if (c.socket) {
            QObject::disconnect(c.socket, nullptr, this, nullptr);
            c.socket->abort();
        }
    }
}

quint16 FakeAdbServer::port() const
{
    return m_server->serverPort();
}

AdbConnectionSettings FakeAdbServer::connectionSettings() const
{
    AdbConnectionSettings settings;
    settings.port = port();
    return settings;
}

void FakeAdbServer::useForClient() const
{
    Settings::setValue(SettingsKey::adbServer, QStringLiteral("127.0.0.1"));
    Settings::setValue(SettingsKey::adbPort, QString::number(port()));
}

FakeAdbServer::Step FakeAdbServer::expectRequest(const QString &request)
{
    return Step{Step::Expect, AdbProtocol::frameRequest(request)};
}

FakeAdbServer::Step FakeAdbServer::reply(const QByteArray &bytes)
{
    return Step{Step::Reply, bytes};
}

FakeAdbServer::Step FakeAdbServer::okay()
{
    return Step{Step::Reply, AdbProtocol::okayReply()};
}

FakeAdbServer::Step FakeAdbServer::fail(const QByteArray &message)
{
    return Step{Step::Reply, AdbProtocol::failReply(message)};
}

FakeAdbServer::Script FakeAdbServer::transportThen(const QString &serial, const QString &request)
{
    return {expectRequest(serial.isEmpty() ? QStringLiteral("host:transport-any")
                                           : QStringLiteral("host:transport:%1").arg(serial)),
            okay(), expectRequest(request)};
}

FakeAdbServer::Step FakeAdbServer::close()
{
    return Step{Step::Close, {}};
}

void FakeAdbServer::addScript(const Script &script)
{
    m_scripts.append(script);
}

int FakeAdbServer::connectionCount() const
{
    return int(m_connections.size());
}

QByteArray FakeAdbServer::received(int connection) const
{
    return connection < m_connections.size() ? m_connections[connection].all : QByteArray();
}

QStringList FakeAdbServer::mismatches() const
{
    return m_mismatches;
}

bool FakeAdbServer::allScriptsDone() const
{
    if (m_connections.size() < m_scripts.size())
        return false;
    for (const Connection &c : m_connections) {
        if (!c.done)
            return false;
    }
    return true;
}

int FakeAdbServer::clientClosedCount() const
{
    return m_clientClosed;
}

void FakeAdbServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        const int index = int(m_connections.size());
        Connection c;
        c.socket = socket;
        if (index < m_scripts.size())
            c.script = m_scripts[index];
        else
            c.script = {close()};
        m_connections.append(c);
        QObject::connect(socket, &QTcpSocket::readyRead, this, [this, index] {
            Connection &conn = m_connections[index];
            const QByteArray data = conn.socket->readAll();
            conn.pending += data;
            conn.all += data;
            advance(index);
        });
        QObject::connect(socket, &QTcpSocket::disconnected, this, [this, index] {
            Connection &conn = m_connections[index];
            if (conn.socket) {
                ++m_clientClosed;
                conn.socket->deleteLater();
                conn.socket = nullptr;
            }
        });
        advance(index);
    }
}

void FakeAdbServer::advance(int index)
{
    Connection &c = m_connections[index];
    auto drop = [&c] {
        QTcpSocket *socket = std::exchange(c.socket, nullptr);
        QObject::disconnect(socket, nullptr, nullptr, nullptr);
        c.done = true;
        return socket;
    };
    while (c.socket && c.step < c.script.size()) {
        const Step &step = c.script[c.step];
        switch (step.kind) {
        case Step::Expect: {
            const qsizetype n = std::min(c.pending.size(), step.bytes.size());
            if (QByteArrayView(c.pending).first(n) != QByteArrayView(step.bytes).first(n)) {
                m_mismatches.append(QStringLiteral("connection %1: expected '%2', got '%3'")
                                        .arg(index)
                                        .arg(QString::fromLatin1(step.bytes), QString::fromLatin1(c.pending)));
                QTcpSocket *socket = drop();
                socket->abort();
                socket->deleteLater();
                return;
            }
            if (c.pending.size() < step.bytes.size())
                return; // wait for the rest
            c.pending.remove(0, step.bytes.size());
            break;
        }
        case Step::Reply:
            c.socket->write(step.bytes);
            c.socket->flush();
            break;
        case Step::Close: {
            ++c.step;
            QTcpSocket *socket = drop();
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            socket->disconnectFromHost(); // sends what is buffered, then FIN
            if (socket->state() == QAbstractSocket::UnconnectedState)
                socket->deleteLater();
            return;
        }
        }
        ++c.step;
    }
    if (c.step >= c.script.size())
        c.done = true;
}

quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}
