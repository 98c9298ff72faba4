// SPDX-License-Identifier: MIT
#include "Android/AdbSocket.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

#include <QMutexLocker>

namespace {

const QByteArray &pngEnd()
{
    static const QByteArray iend("IEND");
    return iend;
}

} // namespace

AdbSocket::AdbSocket() = default;

AdbSocket::~AdbSocket()
{
    AsyncSocket *socket = nullptr;
    {
        QMutexLocker lock(&m_mutex);
        socket = std::exchange(m_socket, nullptr);
    }
    if (socket)
        socket->dispose();
}

void AdbSocket::connect()
{
    m_isConnecting = true;
    const AdbConnectionSettings settings = connectionSettings();

    auto *socket = new AsyncSocket(this);
    AsyncSocket *previous = nullptr;
    {
        QMutexLocker lock(&m_mutex);
        previous = std::exchange(m_socket, socket);
    }
    if (previous)
        previous->dispose();

    AdbError error;
    if (!socket->connectToHost(settings.server, settings.port, &error)) {
        QF_LOG(QStringLiteral(
            "// If there was an error, it's likely something like 'already connected' or 'no delegate set'"));
        QF_LOG(QStringLiteral("Error: %1").arg(error.toString()));
    }
}

void AdbSocket::stop()
{
    QF_LOG(QString());
    m_isConnecting = false;
    QMutexLocker lock(&m_mutex);
    if (m_socket)
        m_socket->disconnect(); // queued onto the socket's thread when called from elsewhere
}

bool AdbSocket::isConnected() const
{
    if (m_isConnecting)
        return true;
    QMutexLocker lock(&m_mutex);
    return m_socket && m_socket->isConnected();
}

bool AdbSocket::isConnecting() const
{
    return m_isConnecting;
}

QString AdbSocket::deviceId() const
{
    QMutexLocker lock(&m_mutex);
    return m_deviceId;
}

void AdbSocket::setDeviceId(const QString &deviceId)
{
    QMutexLocker lock(&m_mutex);
    m_deviceId = deviceId;
}

AdbConnectionSettings AdbSocket::connectionSettings() const
{
    QMutexLocker lock(&m_mutex);
    return m_settings;
}

void AdbSocket::setConnectionSettings(const AdbConnectionSettings &settings)
{
    QMutexLocker lock(&m_mutex);
    m_settings = settings;
}

AsyncSocket *AdbSocket::socket() const
{
    QMutexLocker lock(&m_mutex);
    return m_socket;
}

AdbError AdbSocket::logReaderError(int code, const QString &message)
{
    AdbError error = AdbError::logReaderError(code, message);
    QF_LOG_ERROR(QStringLiteral("Error: %1").arg(error.toString()));
    return error;
}

void AdbSocket::didConnect(const QString &, quint16)
{
    m_isConnecting = false;
}

void AdbSocket::didWrite(long) {}

void AdbSocket::didDisconnect(const std::optional<AdbError> &error)
{
    if (m_isConnecting && error && error->code != AsyncSocket::ClosedError) {
        QF_LOG(QStringLiteral("error code:%1, %2").arg(error->code).arg(error->description));
        adbNotRunningError(*error);
    }
    m_isConnecting = false;
}

void AdbSocket::readWithTag(long tag)
{
    if (AsyncSocket *s = socket())
        s->readDataToData(AsyncSocket::lfData(), -1.0, tag);
}

void AdbSocket::readLinesWithTag(long tag)
{
    if (AsyncSocket *s = socket())
        s->readDataToLastByte('\n', -1.0, tag);
}

void AdbSocket::readPNGWithTag(long tag)
{
    if (AsyncSocket *s = socket())
        s->readDataToData(pngEnd(), -1.0, tag);
}

void AdbSocket::readLength(qsizetype length, long tag)
{
    if (AsyncSocket *s = socket())
        s->readDataToLength(length, -1.0, tag);
}

void AdbSocket::send(const QString &request, double timeout, long tag)
{
    AsyncSocket *s = socket();
    if (!s)
        return;
    s->writeData(AdbProtocol::lengthHeader(request), timeout, tag);
    s->writeData(request.toUtf8(), timeout, tag);
}

void AdbSocket::sendExpectOkay(const QString &request, double timeout, long tag)
{
    send(request, timeout, tag);
    if (AsyncSocket *s = socket())
        s->readDataToLength(4, timeout, tag);
}

void AdbSocket::sendDeviceId(long tag)
{
    const QString serial = deviceId();
    if (!serial.isEmpty())
        sendExpectOkay(QStringLiteral("host:transport:%1").arg(serial), -1.0, tag);
    else
        sendExpectOkay(QStringLiteral("host:transport-any"), -1.0, tag);
}

void AdbSocket::adbNotRunningError(const AdbError &error)
{
    QF_LOG(QStringLiteral("ADB not running: %1").arg(error.toString()));
    m_isConnecting = false;
}

void AdbSocket::adbDeviceNotFound(const AdbError &error)
{
    QF_LOG(QStringLiteral("device not found: %1").arg(error.toString()));
    m_isConnecting = false;
}

void AdbSocket::logNotOkay(QByteArrayView reply)
{
    QF_LOG_ERROR(QStringLiteral("Error: response was not 'OKAY'. Got: '%1'")
                     .arg(AdbProtocol::stringFromData(reply).value_or(QString())));
}

void AdbSocket::logUnknownReadState(long tag)
{
    QF_LOG_ERROR(QStringLiteral("ERROR: unknown read state: %1").arg(tag));
}
