// SPDX-License-Identifier: MIT
#include "Android/ScreencapReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

#include <QBuffer>
#include <QImageReader>
#include <QThreadPool>

#include <cstring>

namespace {

// The CRC of an IEND chunk never varies: it covers only the type.
const QByteArray &iendCrc()
{
    static const QByteArray crc("\xae\x42\x60\x82", 4);
    return crc;
}

} // namespace

ScreencapReader::ScreencapReader()
    : AdbRequestSocket({.transportReply = TransportReplyTag,
                        .requestReplies = {ScreencapReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag})
{
}

void ScreencapReader::setDelegate(ScreencapReaderDelegate *delegate)
{
    m_delegate = delegate;
}

QDateTime ScreencapReader::captureStart() const
{
    const qint64 ms = m_captureStartMs;
    return ms < 0 ? QDateTime() : QDateTime::fromMSecsSinceEpoch(ms);
}

void ScreencapReader::startRequest()
{
    m_captureStartMs = QDateTime::currentMSecsSinceEpoch();
    m_resultData = QByteArray();
    sendRequest(QStringLiteral("shell:screencap -p"), ScreencapReplyTag);
}

void ScreencapReader::requestAccepted(long)
{
    readPNGWithTag(PngTag);
}

bool ScreencapReader::readOwn(QByteArrayView data, long tag)
{
    if (tag != PngTag)
        return false;
    m_resultData.append(data.data(), data.size());
    readPNGWithTag(PngTag);
    return true;
}

void ScreencapReader::replyNotOkay(QByteArrayView reply, long tag)
{
    const QString got = AdbProtocol::stringFromData(reply).value_or(QString());
    const QString prefix = tag == TransportReplyTag ? QStringLiteral("DEVICE_EXPECT_OKAY_TAG")
                                                    : QStringLiteral("EXPECT_SHELL_OKAY");
    QF_LOG_ERROR(QStringLiteral("%1: Error: response was not 'OKAY'. Got: '%2'").arg(prefix, got));
    stop();
}

void ScreencapReader::failed(const QString &message)
{
    const AdbError error = logReaderError(1, message);
    if (ScreencapReaderDelegate *d = m_delegate.load())
        d->screenapFailedWithError(error);
}

void ScreencapReader::unknownReadState(long tag)
{
    stop();
    AdbRequestSocket::unknownReadState(tag);
}

void ScreencapReader::didDisconnect(const std::optional<AdbError> &error)
{
    AdbSocket::didDisconnect(error);
    ScreencapReaderDelegate *d = m_delegate.load();
    if (!m_resultData.isEmpty()) {
        QByteArray data = std::exchange(m_resultData, QByteArray());
        if (d)
            d->screencapWillDecode();
        auto decode = [d, data = std::move(data)] {
            const QImage image = createImageFromData(data);
            if (d)
                d->screencapReceived(image);
        };
        if (QThreadPool *pool = m_decodePool.load())
            pool->start(std::move(decode));
        else
            decode();
        return;
    }
    QF_LOG(QStringLiteral("no screenshot data: %1").arg(error ? error->toString() : QStringLiteral("(null)")));
    if (d)
        d->screenapFailedWithError(error);
}

QByteArray ScreencapReader::repairLineEndings(QByteArrayView data)
{
    QByteArray out;
    out.reserve(data.size());
    const char *p = data.data();
    const qsizetype n = data.size();
    qsizetype i = 0;
    while (i < n) {
        // Copy the run up to the next CR in one go: screenshots are mostly free of them.
        const void *cr = std::memchr(p + i, '\r', size_t(n - i));
        const qsizetype end = cr ? static_cast<const char *>(cr) - p : n;
        out.append(p + i, end - i);
        i = end;
        if (i >= n)
            break;
        if (i + 1 < n && p[i + 1] == '\n') {
            out.append('\n');
            i += 2;
        } else {
            out.append('\r');
            ++i;
        }
    }
    return out;
}

QImage ScreencapReader::createImageFromData(QByteArrayView data)
{
    // A PNG starts with CR LF SUB LF: when that arrived intact, the shell did not translate (a current
    // device's binary-clean shell), and repairing would break the signature itself.
    static const QByteArray signature("\x89PNG\r\n\x1a\n", 8);
    QByteArray bytes = data.startsWith(signature) ? data.toByteArray() : repairLineEndings(data);
    // The read ends at "IEND": give the chunk back its fixed CRC, which libpng insists on.
    if (bytes.endsWith("IEND"))
        bytes.append(iendCrc());
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "PNG");
    return reader.read();
}
