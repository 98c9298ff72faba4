// SPDX-License-Identifier: MIT
#include "Android/LogReader.h"

#include "Android/AdbSettings.h"
#include "Helpers/Logger.h"

void LogReaderDelegate::logLineDataReceived(QByteArrayView line)
{
    // One decoder per reader thread: the line path allocates nothing but the QString.
    thread_local AdbProtocol::Utf8Decoder decoder;
    logLineReceived(decoder.decode(line));
}

void LogReaderDelegate::logLinesDataReceived(QByteArrayView lines)
{
    forEachLine(lines, [this](QByteArrayView line) { logLineDataReceived(line); });
}

void LogReader::setDelegate(LogReaderDelegate *delegate)
{
    m_delegate = delegate;
}

LogReaderDelegate *LogReader::delegate() const
{
    return m_delegate;
}

bool LogReader::sentClearDevice() const
{
    return m_sentClearDevice;
}

void LogReader::didConnect(const QString &host, quint16 port)
{
    AdbSocket::didConnect(host, port);
    sendDeviceId(TransportReplyTag);
}

void LogReader::didRead(QByteArrayView data, long tag)
{
    switch (tag) {
    case LineTag:
        // The hot path: a stream of possibly millions of lines per second, taken in bulk.
        handleLogLineData(data);
        readLinesWithTag(LineTag);
        return;
    case TransportReplyTag:
    case LogcatReplyTag:
    case ClearReplyTag:
        handleReply(data, tag);
        return;
    case FailureLengthTag: {
        const quint32 length = AdbProtocol::hexDataToInteger(data);
        readLength(static_cast<qsizetype>(length), FailureMessageTag);
        return;
    }
    case FailureMessageTag:
        handleFailureMessage(data);
        return;
    default:
        logUnknownReadState(tag);
        return;
    }
}

void LogReader::handleReply(QByteArrayView data, long tag)
{
    if (!AdbProtocol::isOkay(data)) {
        logNotOkay(data);
        readLength(4, FailureLengthTag);
        return;
    }
    switch (tag) {
    case TransportReplyTag:
        if (AdbSettings::clearLogOnStart() && !m_sentClearDevice)
            clearLog();
        else
            startLogStream();
        break;
    case ClearReplyTag:
        // The server closes this connection once the log is cleared; stream on a fresh one.
        connect();
        break;
    case LogcatReplyTag:
        readLinesWithTag(LineTag);
        break;
    default:
        break;
    }
}

void LogReader::handleFailureMessage(QByteArrayView data)
{
    const QString message = AdbProtocol::stringFromData(data).value_or(QString());
    const AdbError error = logReaderError(2, message);
    if (message.toLower().contains(QLatin1String("device not found"))) {
        adbDeviceNotFound(error);
    } else if (LogReaderDelegate *d = m_delegate.load()) {
        d->logReaderStoppedWithError(error);
    }
}

void LogReader::clearLog()
{
    m_sentClearDevice = true;
    sendExpectOkay(QStringLiteral("shell:exec logcat -c"), -1.0, ClearReplyTag);
}

void LogReader::startLogStream()
{
    m_sentClearDevice = false;
    const QString tags = AdbSettings::adbLogTags();
    sendExpectOkay(QStringLiteral("shell:export ANDROID_LOG_TAGS=\"%1\"; exec logcat -v threadtime").arg(tags), -1.0,
                   LogcatReplyTag);
}

void LogReader::handleLogLineData(QByteArrayView data)
{
    if (LogReaderDelegate *d = m_delegate.load(std::memory_order_acquire))
        d->logLinesDataReceived(data);
}

void LogReader::didDisconnect(const std::optional<AdbError> &error)
{
    AdbSocket::didDisconnect(error);
    if (!m_sentClearDevice) {
        if (LogReaderDelegate *d = m_delegate.load())
            d->logReaderStopped();
    }
}

void LogReader::adbNotRunningError(const AdbError &error)
{
    AdbSocket::adbNotRunningError(error);
    if (LogReaderDelegate *d = m_delegate.load())
        d->adbNotRunningError(error);
}

void LogReader::adbDeviceNotFound(const AdbError &error)
{
    AdbSocket::adbDeviceNotFound(error);
    if (LogReaderDelegate *d = m_delegate.load())
        d->adbDeviceNotFound(error);
}
