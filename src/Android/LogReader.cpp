// SPDX-License-Identifier: MIT
#include "Android/LogReader.h"

#include "Helpers/Logger.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

void LogReaderDelegate::logLineDataReceived(QByteArrayView line)
{
    // One decoder per reader thread: the line path allocates nothing but the QString.
    thread_local AdbProtocol::Utf8Decoder decoder;
    logLineReceived(decoder.decode(line));
}

void LogReaderDelegate::logLinesDataReceived(QByteArrayView lines)
{
    forEachLine(lines, [this](QByteArrayView line, bool) { logLineDataReceived(line); });
}

qsizetype LogReaderDelegate::firstLineLength(QByteArrayView lines, bool *ascii)
{
    const char *const begin = lines.data();
    const char *const end = begin + lines.size();
    *ascii = false;
#if defined(__SSE2__)
    const __m128i lineFeed = _mm_set1_epi8('\n');
    int high = 0;
    const char *p = begin;
    for (; end - p >= 16; p += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const int feeds = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, lineFeed));
        const int highs = _mm_movemask_epi8(bytes);
        if (feeds) {
            const int at = __builtin_ctz(unsigned(feeds));
            *ascii = (high | (highs & ((1 << at) - 1))) == 0;
            return p - begin + at + 1;
        }
        high |= highs;
    }
    for (; p < end; ++p) {
        high |= uchar(*p) & 0x80;
        if (*p == '\n') {
            *ascii = high == 0;
            return p - begin + 1;
        }
    }
    *ascii = high == 0;
    return lines.size();
#else
    const void *feed = std::memchr(begin, '\n', size_t(lines.size()));
    return feed ? static_cast<const char *>(feed) - begin + 1 : lines.size();
#endif
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
