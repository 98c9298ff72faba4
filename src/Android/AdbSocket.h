// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbConnectionSettings.h"
#include "Android/AdbError.h"
#include "Android/AsyncSocket.h"

#include <QByteArray>
#include <QMutex>
#include <QString>

#include <atomic>
#include <optional>

// One conversation with the local ADB server: one TCP connection, one request sequence. Subclasses
// drive their own read-state machine from didRead, keyed by tag.
//
// Threads: connect() creates the socket on the calling thread, which must run an event loop; every
// callback of that connection (and so every delegate call of a subclass) arrives there. stop(),
// isConnected(), setDeviceId(), setConnectionSettings() and the subclasses' setDelegate() may be called from any
// thread; the rest belongs to the connecting thread. Destroy the object on the connecting thread, or once that thread's
// event loop has ended (AdbSocketThread does this for owners that run readers on a worker).
class AdbSocket : protected AsyncSocketDelegate
{
public:
    AdbSocket();
    ~AdbSocket() override;
    AdbSocket(const AdbSocket &) = delete;
    AdbSocket &operator=(const AdbSocket &) = delete;

    // Opens a new connection to the settings' server and port, replacing any previous socket; the
    // replaced socket is closed and reports nothing more. The outcome arrives as a callback.
    void connect();
    // Logs, clears isConnecting and closes the socket; the socket's disconnect callback follows.
    void stop();
    // True while connecting, otherwise whether the socket is connected.
    bool isConnected() const;
    bool isConnecting() const;

    QString deviceId() const;
    void setDeviceId(const QString &deviceId);

    // The server to talk to and the reader options; set before connect(). Defaults: 127.0.0.1:5037.
    AdbConnectionSettings connectionSettings() const;
    void setConnectionSettings(const AdbConnectionSettings &settings);

    // The current socket, for tests; owned by this object.
    AsyncSocket *socket() const;

    static AdbError logReaderError(int code, const QString &message);

    // The connection events, public so tests can drive the base behaviour directly.
    void didConnect(const QString &host, quint16 port) override;
    void didWrite(long tag) override;
    void didDisconnect(const std::optional<AdbError> &error) override;
    void didRead(QByteArrayView data, long tag) override = 0;

protected:
    void readWithTag(long tag);
    // Every complete line that has arrived, at least one.
    void readLinesWithTag(long tag);
    void readPNGWithTag(long tag);
    void readLength(qsizetype length, long tag);
    void send(const QString &request, double timeout, long tag);
    void sendExpectOkay(const QString &request, double timeout, long tag);
    // Transport selection: "host:transport:<serial>", or "host:transport-any" without a serial.
    void sendDeviceId(long tag);

    virtual void adbNotRunningError(const AdbError &error);
    virtual void adbDeviceNotFound(const AdbError &error);

    // "Error: response was not 'OKAY'. Got: '...'".
    static void logNotOkay(QByteArrayView reply);
    static void logUnknownReadState(long tag);

    std::atomic<bool> m_isConnecting{false};

private:
    mutable QMutex m_mutex; // guards the members below, which other threads read
    AsyncSocket *m_socket = nullptr;
    QString m_deviceId;
    AdbConnectionSettings m_settings;
};
