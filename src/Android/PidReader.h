// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbSocket.h"

#include <atomic>
#include <optional>

// Called on the thread that called PidReader::connect(), at most once per connection.
class PidReaderDelegate
{
public:
    virtual ~PidReaderDelegate() = default;
    // The whole "ps" output as received (terminators kept); absent when it is not valid UTF-8.
    virtual void pidReceived(const std::optional<QString> &output) = 0;
    // Declared for owners; PidReader never calls it. A failed lookup ends without any callback.
    virtual void pidFailedWithError(const AdbError &error) = 0;
};

// Runs "ps -A" (or "ps") on one device once and hands over the complete output.
class PidReader : public AdbSocket
{
public:
    enum Tag : long {
        FailureLengthTag = 0,
        FailureMessageTag = 1,
        TransportReplyTag = 2,
        PsReplyTag = 3,
        LineTag = 4,
    };

    void setDelegate(PidReaderDelegate *delegate);
    PidReaderDelegate *delegate() const;
    // true: "shell:ps -A"; false: "shell:ps". Set before connect().
    void setAddDashArg(bool addDashArg);
    bool addDashArg() const;

    void didConnect(const QString &host, quint16 port) override;
    void didRead(QByteArrayView data, long tag) override;
    void didDisconnect(const std::optional<AdbError> &error) override;

private:
    void loadPids();

    std::atomic<PidReaderDelegate *> m_delegate{nullptr};
    std::atomic<bool> m_addDashArg{true};
    std::optional<QByteArray> m_resultData; // absent until the command is sent
};
