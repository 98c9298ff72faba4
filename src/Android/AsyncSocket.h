// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbError.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QObject>
#include <QString>

#include <atomic>
#include <deque>
#include <optional>

class QTcpSocket;
class QTimer;

// Receives the events of one AsyncSocket, all on the thread that called connectToHost, one at a time.
// Order: didConnect once, then didRead/didWrite in the order the reads and writes were queued, then
// didDisconnect once. A socket that failed to connect reports only didDisconnect.
class AsyncSocketDelegate
{
public:
    virtual ~AsyncSocketDelegate() = default;
    virtual void didConnect(const QString &host, quint16 port) = 0;
    // `data` points into the socket's buffer and is valid only during the call; copy what must outlive it.
    virtual void didRead(QByteArrayView data, long tag) = 0;
    virtual void didWrite(long tag) = 0;
    // No error after a local disconnect(); code 7 when the peer closed the connection; the system's
    // errno (domain "posix") when the connection was refused or failed.
    virtual void didDisconnect(const std::optional<AdbError> &error) = 0;
};

// Event-driven TCP connection with queued, tagged reads and writes over QTcpSocket.
// Lives on the thread that created it, which must run an event loop. disconnect() and isConnected()
// may be called from any thread; everything else from the owning thread. The delegate is not owned:
// clear it with setDelegate(nullptr) before it goes away (dispose() does that).
class AsyncSocket : public QObject
{
public:
    // Error codes in errorDomain (the numbering of the Cocoa socket library the protocol grew up with).
    enum ErrorCode : int {
        BadConfigError = 1,
        BadParamError = 2,
        ConnectTimeoutError = 3,
        ReadTimeoutError = 4,
        WriteTimeoutError = 5,
        ReadMaxedOutError = 6,
        ClosedError = 7,
        OtherError = 8,
    };
    static const QString errorDomain;

    explicit AsyncSocket(AsyncSocketDelegate *delegate, QObject *parent = nullptr);
    ~AsyncSocket() override;

    // Clears the delegate, drops the connection without a callback and deletes the socket now, or
    // later when called from inside one of its own callbacks or from another thread.
    void dispose();

    void setDelegate(AsyncSocketDelegate *delegate);

    // Starts connecting (no connect timeout). False, with an error, when it cannot start: no
    // delegate, empty host, or already connecting or connected.
    bool connectToHost(const QString &host, quint16 port, AdbError *error = nullptr);

    // Timeouts in seconds; negative means none. An expired read/write closes the connection with
    // ReadTimeoutError/WriteTimeoutError.
    void writeData(const QByteArray &data, double timeout, long tag);
    // A length of 0 or an empty pattern is ignored: nothing is read, nothing is delivered.
    void readDataToLength(qsizetype length, double timeout, long tag);
    void readDataToData(const QByteArray &pattern, double timeout, long tag);
    // Like readDataToData with a one-byte pattern, but takes everything up to and including the last
    // occurrence in what has arrived: many lines at once when a stream runs ahead of its reader.
    void readDataToLastByte(char byte, double timeout, long tag);

    // Closes the connection; the delegate then gets didDisconnect with no error (queued).
    void disconnect();
    bool isConnected() const;

    QString connectedHost() const;
    quint16 connectedPort() const;

    // A single line feed.
    static const QByteArray &lfData();

private:
    enum class State { Idle, Connecting, Connected, Closed };
    struct Read
    {
        QByteArray pattern; // empty for a read to length
        qsizetype length = 0;
        qsizetype scanned = 0; // bytes already searched for the pattern, so a long line is scanned once
        double timeout = -1;
        long tag = 0;
        bool toLast = false; // up to the last occurrence of the one-byte pattern
    };
    struct Write
    {
        qint64 remaining = 0;
        double timeout = -1;
        long tag = 0;
    };

    void onConnected();
    void onReadyRead();
    void onPeerClosed();
    void onSocketError();
    void onBytesWritten(qint64 bytes);
    bool pullSocketData(); // false when nothing was read
    void scheduleReads();
    void processReads();
    void startReadTimer();
    void startWriteTimer();
    void closeQuietly();
    void closeWithError(const std::optional<AdbError> &error);
    void compactBuffer();
    static AdbError socketError(ErrorCode code, const QString &description);

    template <class F> void callDelegate(F &&call);

    std::atomic<AsyncSocketDelegate *> m_delegate{nullptr};
    QTcpSocket *m_tcp = nullptr;
    QTimer *m_readTimer = nullptr;
    QTimer *m_writeTimer = nullptr;
    State m_state = State::Idle;
    std::atomic<bool> m_connectedFlag{false};
    QString m_host;
    quint16 m_port = 0;

    QByteArray m_buffer; // received bytes; [m_offset, size) not yet delivered
    qsizetype m_offset = 0;
    bool m_peerClosed = false;
    std::deque<Read> m_reads;
    std::deque<Write> m_writes;
    std::deque<QByteArray> m_pendingWrites; // queued before the connection came up
    int m_callbackDepth = 0;
    bool m_processScheduled = false;
    bool m_disposed = false;
};
