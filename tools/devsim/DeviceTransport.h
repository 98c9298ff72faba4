// SPDX-License-Identifier: MIT
#pragma once

#include "AdbMessage.h"
#include "DeviceConfig.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <map>
#include <memory>

class DeviceServices;
class DeviceStream;

// The device end of the ADB transport over TCP: answers the server's CNXN at once (no AUTH),
// then serves OPEN/OKAY/WRTE/CLSE. Flow control follows the server: at most one unacknowledged
// WRTE per stream, each as large as the negotiated maximum allows.
class DeviceTransport : public QObject
{
    Q_OBJECT
public:
    DeviceTransport(const DeviceConfig &config, DeviceServices &services, QObject *parent = nullptr);
    ~DeviceTransport() override;

    // port 0 picks a free port; later listen() calls reuse the port first chosen.
    bool listen(quint16 port);
    quint16 port() const { return m_port; }
    QString errorString() const { return m_server.errorString(); }

    // Cuts the server's connection and stops listening, as an unplugged device does.
    void unplug();
    bool isOnline() const { return m_socket != nullptr; }

signals:
    // The server completed the handshake.
    void serverConnected();
    void serverDisconnected();

private:
    struct Stream
    {
        uint32_t remoteId = 0;
        std::unique_ptr<DeviceStream> device;
        bool awaitingOkay = false;
        bool reading = false;
    };

    void onNewConnection();
    void onReadyRead();
    void onDisconnected();
    void handle(const AdbMessage &message);
    void openStream(const AdbMessage &message);
    void pump(uint32_t localId);
    void closeStream(uint32_t localId, bool notifyServer);
    void send(uint32_t command, uint32_t arg0, uint32_t arg1, const QByteArray &data = {});
    void dropConnection();

    DeviceConfig m_config;
    DeviceServices &m_services;
    QTcpServer m_server;
    QPointer<QTcpSocket> m_socket;
    std::unique_ptr<AdbMessageParser> m_parser;
    std::map<uint32_t, Stream> m_streams;
    uint32_t m_nextId = 1;
    uint32_t m_maxPayload = 4096;
    bool m_checksum = true;
    bool m_handshakeDone = false;
    quint16 m_port = 0;
};
