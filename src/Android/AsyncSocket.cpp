// SPDX-License-Identifier: MIT
#include "Android/AsyncSocket.h"

#include <QHostAddress>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <cstring>

const QString AsyncSocket::errorDomain = QStringLiteral("AsyncSocketErrorDomain");

namespace {

// Bytes the QTcpSocket buffers ahead of us, and so the most one pull copies. A bound keeps both its
// buffer and ours small enough to stay in cache and to be reused instead of reallocated (a large
// buffer is mapped fresh and page-faulted on every burst); the rest waits in the kernel.
constexpr qint64 ReadChunk = 128 * 1024;

int msecs(double seconds)
{
    const double ms = seconds * 1000.0;
    return ms > 2e9 ? 2000000000 : static_cast<int>(ms);
}

} // namespace

AsyncSocket::AsyncSocket(AsyncSocketDelegate *delegate, QObject *parent)
    : QObject(parent), m_delegate(delegate), m_tcp(new QTcpSocket(this)), m_readTimer(new QTimer(this)),
      m_writeTimer(new QTimer(this))
{
    // The ADB server is local; a proxy lookup would only cost time (and races inside Qt across threads).
    m_tcp->setProxy(QNetworkProxy::NoProxy);
    m_tcp->setReadBufferSize(ReadChunk);
    m_readTimer->setSingleShot(true);
    m_writeTimer->setSingleShot(true);
    QObject::connect(m_tcp, &QTcpSocket::connected, this, &AsyncSocket::onConnected);
    QObject::connect(m_tcp, &QTcpSocket::readyRead, this, &AsyncSocket::onReadyRead);
    QObject::connect(m_tcp, &QTcpSocket::disconnected, this, &AsyncSocket::onPeerClosed);
    QObject::connect(m_tcp, &QTcpSocket::errorOccurred, this, &AsyncSocket::onSocketError);
    QObject::connect(m_tcp, &QTcpSocket::bytesWritten, this, &AsyncSocket::onBytesWritten);
    QObject::connect(m_readTimer, &QTimer::timeout, this, [this] {
        closeWithError(socketError(ReadTimeoutError, QStringLiteral("Read operation timed out")));
    });
    QObject::connect(m_writeTimer, &QTimer::timeout, this, [this] {
        closeWithError(socketError(WriteTimeoutError, QStringLiteral("Write operation timed out")));
    });
}

AsyncSocket::~AsyncSocket()
{
    m_delegate = nullptr;
    // No signal of the dying QTcpSocket may reach the half-destroyed object.
    QObject::disconnect(m_tcp, nullptr, this, nullptr);
    m_tcp->abort();
}

template <class F> void AsyncSocket::callDelegate(F &&call)
{
    AsyncSocketDelegate *delegate = m_delegate.load(std::memory_order_acquire);
    if (!delegate)
        return;
    ++m_callbackDepth;
    call(delegate);
    --m_callbackDepth;
}

void AsyncSocket::dispose()
{
    m_delegate = nullptr;
    m_disposed = true;
    if (QThread::currentThread() != thread()) {
        deleteLater();
        return;
    }
    m_state = State::Closed;
    m_connectedFlag = false;
    m_readTimer->stop();
    m_writeTimer->stop();
    QObject::disconnect(m_tcp, nullptr, this, nullptr);
    m_tcp->abort();
    if (m_callbackDepth > 0)
        deleteLater(); // the caller's stack still runs inside this object
    else
        delete this;
}

void AsyncSocket::setDelegate(AsyncSocketDelegate *delegate)
{
    m_delegate = delegate;
}

bool AsyncSocket::connectToHost(const QString &host, quint16 port, AdbError *error)
{
    auto fail = [error](ErrorCode code, const QString &text) {
        if (error)
            *error = socketError(code, text);
        return false;
    };
    if (!m_delegate.load())
        return fail(BadConfigError, QStringLiteral("Attempting to connect without a delegate. Set a delegate first."));
    if (m_state != State::Idle)
        return fail(
            BadConfigError,
            QStringLiteral("Attempting to connect while connected or accepting connections. Disconnect first."));
    if (host.isEmpty())
        return fail(
            BadParamError,
            QStringLiteral("Invalid host parameter (nil or \"\"). Should be a domain name or IP address string."));
    m_state = State::Connecting;
    m_host = host;
    m_port = port;
    m_tcp->connectToHost(host, port);
    return true;
}

void AsyncSocket::writeData(const QByteArray &data, double timeout, long tag)
{
    if (m_state == State::Closed || data.isEmpty())
        return;
    m_writes.push_back(Write{data.size(), timeout, tag});
    if (m_state == State::Connected) {
        if (m_writes.size() == 1)
            startWriteTimer();
        m_tcp->write(data);
    } else {
        m_pendingWrites.push_back(data);
    }
}

void AsyncSocket::readDataToLength(qsizetype length, double timeout, long tag)
{
    if (m_state == State::Closed || length <= 0)
        return;
    m_reads.push_back(Read{QByteArray(), length, 0, timeout, tag});
    scheduleReads();
}

void AsyncSocket::readDataToData(const QByteArray &pattern, double timeout, long tag)
{
    if (m_state == State::Closed || pattern.isEmpty())
        return;
    m_reads.push_back(Read{pattern, 0, 0, timeout, tag});
    scheduleReads();
}

void AsyncSocket::readDataToLastByte(char byte, double timeout, long tag)
{
    if (m_state == State::Closed)
        return;
    m_reads.push_back(Read{QByteArray(1, byte), 0, 0, timeout, tag, true});
    scheduleReads();
}

void AsyncSocket::disconnect()
{
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this] { disconnect(); }, Qt::QueuedConnection);
        return;
    }
    if (m_state == State::Idle || m_state == State::Closed)
        return;
    closeQuietly();
    // Reported later, as the caller may be in the middle of a callback of this socket.
    QMetaObject::invokeMethod(
        this, [this] { callDelegate([](AsyncSocketDelegate *d) { d->didDisconnect(std::nullopt); }); },
        Qt::QueuedConnection);
}

bool AsyncSocket::isConnected() const
{
    return m_connectedFlag.load();
}

QString AsyncSocket::connectedHost() const
{
    return m_tcp->peerAddress().toString();
}

quint16 AsyncSocket::connectedPort() const
{
    return m_tcp->peerPort();
}

const QByteArray &AsyncSocket::lfData()
{
    static const QByteArray lf("\n", 1);
    return lf;
}

void AsyncSocket::onConnected()
{
    if (m_state != State::Connecting)
        return;
    m_state = State::Connected;
    m_connectedFlag = true;
    if (!m_writes.empty())
        startWriteTimer();
    for (const QByteArray &data : m_pendingWrites)
        m_tcp->write(data);
    m_pendingWrites.clear();
    const QString host = m_tcp->peerAddress().toString();
    const quint16 port = m_tcp->peerPort();
    callDelegate([&](AsyncSocketDelegate *d) { d->didConnect(host, port); });
    if (m_state == State::Connected)
        processReads();
}

void AsyncSocket::onReadyRead()
{
    // Serves every complete read of every chunk now: readyRead comes again only for new bytes.
    while (m_state == State::Connected && !m_disposed) {
        if (!pullSocketData())
            break;
        processReads();
    }
}

void AsyncSocket::onPeerClosed()
{
    if (m_state != State::Connected)
        return;
    // Everything still buffered is served before the close is reported.
    while (m_state == State::Connected && !m_disposed && pullSocketData())
        processReads();
    if (m_state != State::Connected || m_disposed)
        return;
    m_peerClosed = true;
    processReads();
}

void AsyncSocket::onSocketError()
{
    if (m_state == State::Closed || m_state == State::Idle)
        return;
    const QAbstractSocket::SocketError kind = m_tcp->error();
    if (kind == QAbstractSocket::RemoteHostClosedError) {
        // disconnected() follows once the socket has closed; buffered bytes are still served first.
        if (m_tcp->state() == QAbstractSocket::UnconnectedState)
            onPeerClosed();
        return;
    }
    int errnoCode = 0;
    switch (kind) {
    case QAbstractSocket::ConnectionRefusedError:
        errnoCode = ECONNREFUSED;
        break;
    case QAbstractSocket::SocketTimeoutError:
        errnoCode = ETIMEDOUT;
        break;
    case QAbstractSocket::NetworkError:
        errnoCode = ENETUNREACH;
        break;
    case QAbstractSocket::SocketAccessError:
        errnoCode = EACCES;
        break;
    default:
        break;
    }
    closeWithError(errnoCode ? AdbError::posixError(errnoCode) : socketError(OtherError, m_tcp->errorString()));
}

void AsyncSocket::onBytesWritten(qint64 bytes)
{
    while (bytes > 0 && !m_writes.empty() && m_state == State::Connected) {
        Write &head = m_writes.front();
        const qint64 used = std::min(bytes, head.remaining);
        head.remaining -= used;
        bytes -= used;
        if (head.remaining > 0)
            break;
        const long tag = head.tag;
        m_writes.pop_front();
        m_writeTimer->stop();
        if (!m_writes.empty())
            startWriteTimer();
        callDelegate([tag](AsyncSocketDelegate *d) { d->didWrite(tag); });
    }
}

bool AsyncSocket::pullSocketData()
{
    const qint64 available = std::min(m_tcp->bytesAvailable(), ReadChunk);
    if (available <= 0)
        return false;
    // Served bytes go before the buffer grows; what is left is mostly a partial line.
    if (m_offset > 0 && m_offset >= m_buffer.size() - m_offset)
        compactBuffer();
    const qsizetype old = m_buffer.size();
    m_buffer.resize(old + available);
    const qint64 got = m_tcp->read(m_buffer.data() + old, available);
    m_buffer.resize(old + std::max<qint64>(got, 0));
    return got > 0;
}

void AsyncSocket::scheduleReads()
{
    if (m_reads.size() == 1)
        startReadTimer();
    // Inside a callback the running loop picks the new read up; otherwise serve it from the event loop,
    // never re-entering the delegate from the call that queued the read.
    if (m_callbackDepth > 0 || m_processScheduled || m_state != State::Connected)
        return;
    m_processScheduled = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_processScheduled = false;
            processReads();
        },
        Qt::QueuedConnection);
}

void AsyncSocket::processReads()
{
    if (m_state != State::Connected)
        return;
    ++m_callbackDepth;
    while (!m_reads.empty() && m_state == State::Connected) {
        Read &read = m_reads.front();
        const qsizetype available = m_buffer.size() - m_offset;
        qsizetype length = -1;
        if (read.pattern.isEmpty()) {
            if (available >= read.length)
                length = read.length;
        } else if (read.toLast) {
            const char *start = m_buffer.constData() + m_offset;
            const void *hit = memrchr(start + read.scanned, read.pattern[0], size_t(available - read.scanned));
            if (hit)
                length = static_cast<const char *>(hit) - start + 1;
            else
                read.scanned = available;
        } else if (read.pattern.size() == 1) {
            const char *start = m_buffer.constData() + m_offset;
            const void *hit = std::memchr(start + read.scanned, read.pattern[0], size_t(available - read.scanned));
            if (hit)
                length = static_cast<const char *>(hit) - start + 1;
            else
                read.scanned = available;
        } else {
            const qsizetype from = m_offset + std::max<qsizetype>(0, read.scanned - (read.pattern.size() - 1));
            const qsizetype hit = m_buffer.indexOf(read.pattern, from);
            if (hit >= 0)
                length = hit - m_offset + read.pattern.size();
            else
                read.scanned = available;
        }
        if (length < 0)
            break;
        const long tag = read.tag;
        m_reads.pop_front();
        m_readTimer->stop();
        if (!m_reads.empty())
            startReadTimer();
        const QByteArrayView data(m_buffer.constData() + m_offset, length);
        m_offset += length;
        if (AsyncSocketDelegate *delegate = m_delegate.load(std::memory_order_acquire))
            delegate->didRead(data, tag);
        else
            break;
    }
    --m_callbackDepth;
    if (m_state != State::Connected || m_disposed)
        return;
    if (m_offset == m_buffer.size()) {
        m_buffer.resize(0); // keeps the capacity for the next chunk
        m_offset = 0;
    }
    // The peer is gone and no queued read can complete from what is left.
    if (m_peerClosed)
        closeWithError(socketError(ClosedError, QStringLiteral("Socket closed by remote peer")));
}

void AsyncSocket::startReadTimer()
{
    if (!m_reads.empty() && m_reads.front().timeout >= 0 && m_state != State::Closed)
        m_readTimer->start(msecs(m_reads.front().timeout));
}

void AsyncSocket::startWriteTimer()
{
    if (!m_writes.empty() && m_writes.front().timeout >= 0 && m_state == State::Connected)
        m_writeTimer->start(msecs(m_writes.front().timeout));
}

// Drops every queued request and the connection; telling the delegate is the caller's job.
void AsyncSocket::closeQuietly()
{
    m_state = State::Closed;
    m_connectedFlag = false;
    m_reads.clear();
    m_writes.clear();
    m_pendingWrites.clear();
    m_readTimer->stop();
    m_writeTimer->stop();
    m_tcp->abort();
}

void AsyncSocket::closeWithError(const std::optional<AdbError> &error)
{
    if (m_state == State::Closed)
        return;
    closeQuietly();
    callDelegate([&error](AsyncSocketDelegate *d) { d->didDisconnect(error); });
}

void AsyncSocket::compactBuffer()
{
    // Moved in place: QByteArray::remove at the front would only advance the start and shrink the
    // room at the end, so the next resize would reallocate.
    const qsizetype left = m_buffer.size() - m_offset;
    if (left > 0)
        std::memmove(m_buffer.data(), m_buffer.constData() + m_offset, size_t(left));
    m_buffer.resize(left);
    m_offset = 0;
}

AdbError AsyncSocket::socketError(ErrorCode code, const QString &description)
{
    return AdbError{errorDomain, code, description, description, QString()};
}
