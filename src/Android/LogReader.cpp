// SPDX-License-Identifier: MIT
#include "Android/LogReader.h"

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

LogReader::LogReader()
    : AdbRequestSocket({.transportReply = TransportReplyTag,
                        .requestReplies = {LogcatReplyTag, ClearReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag})
{
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

void LogReader::startRequest()
{
    if (connectionSettings().clearLogOnStart && !m_sentClearDevice) {
        m_sentClearDevice = true;
        sendRequest(QStringLiteral("shell:exec logcat -c"), ClearReplyTag);
    } else {
        m_sentClearDevice = false;
        sendRequest(QStringLiteral("shell:export ANDROID_LOG_TAGS=\"%1\"; exec logcat -v threadtime")
                        .arg(connectionSettings().logTags),
                    LogcatReplyTag);
    }
}

void LogReader::requestAccepted(long replyTag)
{
    if (replyTag == ClearReplyTag)
        connect(); // the server closes this connection once the log is cleared; stream on a fresh one
    else
        readLinesWithTag(LineTag);
}

bool LogReader::readOwn(QByteArrayView data, long tag)
{
    if (tag != LineTag)
        return false;
    // The hot path: a stream of possibly millions of lines per second, taken in bulk.
    if (LogReaderDelegate *d = m_delegate.load(std::memory_order_acquire))
        d->logLinesDataReceived(data);
    readLinesWithTag(LineTag);
    return true;
}

void LogReader::replyNotOkay(QByteArrayView reply, long tag)
{
    AdbRequestSocket::replyNotOkay(reply, tag);
    readFailure();
}

void LogReader::failed(const QString &message)
{
    const AdbError error = logReaderError(2, message);
    if (message.toLower().contains(QLatin1String("device not found"))) {
        adbDeviceNotFound(error);
    } else if (LogReaderDelegate *d = m_delegate.load()) {
        d->logReaderStoppedWithError(error);
    }
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
