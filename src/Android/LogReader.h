// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbProtocol.h"
#include "Android/AdbRequestSocket.h"

#include <atomic>

// Called on the thread that called LogReader::connect(). Order on one run: zero or more
// logLineReceived, at most one of logReaderStoppedWithError / adbDeviceNotFound / adbNotRunningError,
// then logReaderStopped once the connection ends (never for the connection that cleared the log).
class LogReaderDelegate
{
public:
    virtual ~LogReaderDelegate() = default;
    // One logcat line with its terminator (LF, or CR LF); absent when the bytes are not UTF-8.
    virtual void logLineReceived(const std::optional<QString> &line) = 0;
    // The same line as the bytes that arrived, valid only during the call. This is what the reader
    // calls; the default decodes it and hands the text (or its absence) to logLineReceived. A delegate
    // that works on UTF-8 overrides it to skip the round trip through a QString, and keeps the rule
    // that a line which is not valid UTF-8 counts as absent.
    virtual void logLineDataReceived(QByteArrayView line);
    // One or more whole lines as they arrived together, each with its terminator, valid only during
    // the call. This is what the reader calls; the default hands them one by one to
    // logLineDataReceived. A delegate that gains from taking lines in bulk overrides it.
    virtual void logLinesDataReceived(QByteArrayView lines);
    // Calls `line(view, ascii)` with each line of such a run, its terminator included; `ascii` true
    // means the line is all ASCII (so valid UTF-8 without a further check).
    template <typename F> static void forEachLine(QByteArrayView lines, F &&line)
    {
        while (!lines.isEmpty()) {
            bool ascii = false;
            const qsizetype length = firstLineLength(lines, &ascii);
            line(lines.first(length), ascii);
            lines = lines.sliced(length);
        }
    }
    // Length of the first line with its line feed (all of `lines` when it has none), and whether it
    // is all ASCII: one pass finds both, where finding the end and checking UTF-8 were two. Without
    // SSE2 *ascii stays false.
    static qsizetype firstLineLength(QByteArrayView lines, bool *ascii);
    virtual void logReaderStopped() = 0;
    // "FAIL" whose message does not mention "device not found"; domain "logReader", code 2.
    virtual void logReaderStoppedWithError(const AdbError &error) = 0;
    virtual void adbNotRunningError(const AdbError &error) = 0;
    virtual void adbDeviceNotFound(const AdbError &error) = 0;
};

// Streams "logcat -v threadtime" of one device, in whole lines, optionally clearing the log first.
class LogReader : public AdbRequestSocket
{
public:
    enum Tag : long {
        TransportReplyTag = 0,
        FailureLengthTag = 1,
        FailureMessageTag = 2,
        LogcatReplyTag = 3,
        ClearReplyTag = 4,
        LineTag = 5,
    };

    LogReader();

    // Weak: the owner clears it (any thread) before it goes away.
    void setDelegate(LogReaderDelegate *delegate);
    LogReaderDelegate *delegate() const;
    bool sentClearDevice() const;

    void didDisconnect(const std::optional<AdbError> &error) override;

protected:
    // Clears the log first when the settings ask for it and this run has not done so yet.
    void startRequest() override;
    void requestAccepted(long replyTag) override;
    bool readOwn(QByteArrayView data, long tag) override;
    void replyNotOkay(QByteArrayView reply, long tag) override;
    void failed(const QString &message) override;
    void adbNotRunningError(const AdbError &error) override;
    void adbDeviceNotFound(const AdbError &error) override;

private:
    std::atomic<LogReaderDelegate *> m_delegate{nullptr};
    std::atomic<bool> m_sentClearDevice{false};
};
