// SPDX-License-Identifier: MIT
#include "DeviceTransport.h"

#include "DeviceServices.h"
#include "DeviceStreams.h"

#include <QTextStream>

namespace {
constexpr uint32_t kVersion = 0x01000001;
// Messages from the server are small (OPEN, OKAY, CLSE, stdin WRTEs); anything longer than
// its own 1 MiB limit means the stream is out of step.
constexpr uint32_t kMaxIncoming = 1024 * 1024 + 4096;

void note(const QString &text)
{
    QTextStream(stderr) << "devsim: " << text << Qt::endl;
}
} // namespace

DeviceTransport::DeviceTransport(const DeviceConfig &config, DeviceServices &services, QObject *parent)
    : QObject(parent), m_config(config), m_services(services)
{
    connect(&m_server, &QTcpServer::newConnection, this, &DeviceTransport::onNewConnection);
}

DeviceTransport::~DeviceTransport()
{
    m_streams.clear();
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
    }
}

bool DeviceTransport::listen(quint16 port)
{
    if (m_server.isListening())
        return true;
    if (!m_server.listen(QHostAddress::LocalHost, m_port ? m_port : port))
        return false;
    m_port = m_server.serverPort();
    return true;
}

void DeviceTransport::unplug()
{
    dropConnection();
    m_server.close();
}

void DeviceTransport::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        if (m_socket) {
            note(QStringLiteral("a new server connection replaces the old one"));
            dropConnection();
        }
        m_socket = socket;
        socket->setParent(this);
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_parser = std::make_unique<AdbMessageParser>(kMaxIncoming);
        m_handshakeDone = false;
        connect(socket, &QTcpSocket::readyRead, this, &DeviceTransport::onReadyRead);
        connect(socket, &QTcpSocket::disconnected, this, &DeviceTransport::onDisconnected);
    }
}

void DeviceTransport::onReadyRead()
{
    if (!m_socket)
        return;
    m_parser->append(m_socket->readAll());
    while (m_socket) {
        std::optional<AdbMessage> message = m_parser->next();
        if (!message)
            break;
        handle(*message);
    }
    if (m_socket && m_parser->isBroken()) {
        note(QStringLiteral("malformed message from the server; dropping the connection"));
        dropConnection();
    }
}

void DeviceTransport::onDisconnected()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (!socket || socket != m_socket)
        return;
    note(QStringLiteral("the server closed the connection"));
    m_streams.clear();
    m_socket = nullptr;
    m_handshakeDone = false;
    socket->deleteLater();
    emit serverDisconnected();
}

void DeviceTransport::dropConnection()
{
    m_streams.clear();
    if (!m_socket)
        return;
    QTcpSocket *socket = m_socket;
    m_socket = nullptr;
    m_handshakeDone = false;
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    emit serverDisconnected();
}

void DeviceTransport::handle(const AdbMessage &message)
{
    switch (message.command) {
    case AdbMessage::kCnxn: {
        const uint32_t version = std::min(message.arg0, kVersion);
        m_checksum = version < AdbMessage::kVersionSkipChecksum;
        m_maxPayload = std::min(message.arg1, m_config.maxData);
        m_streams.clear();
        // The CNXN reply always carries a checksum: the server checks it before the version is agreed.
        m_socket->write(AdbMessage{AdbMessage::kCnxn, kVersion, m_config.maxData, m_services.banner()}.encode(true));
        if (!m_handshakeDone) {
            m_handshakeDone = true;
            note(QStringLiteral("server connected (version %1, max payload %2)")
                     .arg(message.arg0, 0, 16)
                     .arg(m_maxPayload));
            emit serverConnected();
        }
        break;
    }
    case AdbMessage::kOpen:
        openStream(message);
        break;
    case AdbMessage::kOkay: {
        auto it = m_streams.find(message.arg1);
        if (it != m_streams.end()) {
            it->second.awaitingOkay = false;
            pump(message.arg1);
        }
        break;
    }
    case AdbMessage::kWrte:
        // Input towards the device (a shell's stdin): acknowledged and ignored.
        if (m_streams.count(message.arg1))
            send(AdbMessage::kOkay, message.arg1, message.arg0);
        break;
    case AdbMessage::kClse:
        closeStream(message.arg1, false);
        break;
    default:
        note(QStringLiteral("ignoring %1").arg(QString::fromLatin1(AdbMessage::commandName(message.command))));
        break;
    }
}

void DeviceTransport::openStream(const AdbMessage &message)
{
    std::unique_ptr<DeviceStream> device = m_services.open(message.data);
    if (!device) {
        note(QStringLiteral("refusing service %1").arg(QString::fromUtf8(message.data)));
        send(AdbMessage::kClse, 0, message.arg0);
        return;
    }
    const uint32_t localId = m_nextId++;
    device->setWakeHandler([this, localId] { pump(localId); });
    Stream &stream = m_streams[localId];
    stream.remoteId = message.arg0;
    stream.device = std::move(device);
    send(AdbMessage::kOkay, localId, message.arg0);
    pump(localId);
}

void DeviceTransport::pump(uint32_t localId)
{
    auto it = m_streams.find(localId);
    if (it == m_streams.end() || !m_socket)
        return;
    Stream &stream = it->second;
    if (stream.awaitingOkay || stream.reading)
        return;
    stream.reading = true;
    const QByteArray data = stream.device->read(m_maxPayload);
    stream.reading = false;
    if (!data.isEmpty()) {
        stream.awaitingOkay = true;
        send(AdbMessage::kWrte, localId, stream.remoteId, data);
    } else if (stream.device->atEnd()) {
        closeStream(localId, true);
    }
}

void DeviceTransport::closeStream(uint32_t localId, bool notifyServer)
{
    auto it = m_streams.find(localId);
    if (it == m_streams.end())
        return;
    const uint32_t remoteId = it->second.remoteId;
    m_streams.erase(it);
    if (notifyServer)
        send(AdbMessage::kClse, localId, remoteId);
}

void DeviceTransport::send(uint32_t command, uint32_t arg0, uint32_t arg1, const QByteArray &data)
{
    if (!m_socket)
        return;
    m_socket->write(AdbMessage::encodeHeader(command, arg0, arg1, data.constData(), data.size(), m_checksum));
    if (!data.isEmpty())
        m_socket->write(data);
}
