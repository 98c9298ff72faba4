// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"

#include <QDateTime>
#include <QImage>

class QThreadPool;

#include <atomic>
#include <optional>

// Called on the thread that called ScreencapReader::connect(): per connection either screencapWillDecode
// and then screencapReceived, or screenapFailedWithError. With a decode pool set, screencapReceived
// runs on a thread of that pool instead (in capture order when the pool has one thread).
class ScreencapReaderDelegate
{
public:
    virtual ~ScreencapReaderDelegate() = default;
    // All bytes of a capture have arrived and are about to be decoded on this thread; a continuous
    // consumer starts the next capture here, so the device works on it while this one decodes.
    virtual void screencapWillDecode() {}
    // The decoded screenshot; a null image when the bytes did not decode.
    virtual void screencapReceived(const QImage &image) = 0;
    // Nothing arrived: the server's failure message (domain "logReader", code 1), the disconnection's
    // error, or absent. (The name keeps its historical misspelling.)
    virtual void screenapFailedWithError(const std::optional<AdbError> &error) = 0;
};

// Takes one screenshot per connection with "screencap -p": the PNG is read in pieces ending at "IEND",
// the shell's LF -> CR LF translation undone, and the image decoded on the connection's thread.
class ScreencapReader : public AdbRequestSocket
{
public:
    enum Tag : long {
        FailureLengthTag = 0,
        FailureMessageTag = 1,
        TransportReplyTag = 2,
        ScreencapReplyTag = 3,
        PngTag = 4,
    };

    ScreencapReader();

    void setDelegate(ScreencapReaderDelegate *delegate);
    // Decodes on this pool rather than the connection's thread, so that thread can already carry the
    // next capture. The pool must outlive every capture handed to it (wait for it after the reader).
    void setDecodePool(QThreadPool *pool) { m_decodePool = pool; }
    // When the current capture's command was sent; invalid before the first.
    QDateTime captureStart() const;

    void didDisconnect(const std::optional<AdbError> &error) override;

    // Every CR LF becomes LF unless the CR is the last byte; every other byte stays. So a lone CR
    // stays, and CR CR LF becomes CR LF.
    static QByteArray repairLineEndings(QByteArrayView data);
    // The repaired bytes decoded as an image; null when they do not decode. Bytes that begin with an
    // intact PNG signature were not translated and are decoded as they are. A PNG cut off after the
    // "IEND" type (the read stops there, so its CRC never arrives) decodes as well.
    static QImage createImageFromData(QByteArrayView data);

protected:
    void startRequest() override;
    void requestAccepted(long replyTag) override;
    void replyNotOkay(QByteArrayView reply, long tag) override;
    void failed(const QString &message) override;
    bool readOwn(QByteArrayView data, long tag) override;
    void unknownReadState(long tag) override;

private:
    std::atomic<ScreencapReaderDelegate *> m_delegate{nullptr};
    std::atomic<qint64> m_captureStartMs{-1};
    std::atomic<QThreadPool *> m_decodePool{nullptr};
    QByteArray m_resultData; // connecting thread only
};
