// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"

#include <atomic>
#include <optional>

// Called on the thread that called PidReader::connect(), at most once per connection.
class PidReaderDelegate
{
public:
    virtual ~PidReaderDelegate() = default;
    // The whole "ps" output as received (terminators kept); absent when it is not valid UTF-8.
    virtual void pidReceived(const std::optional<QString> &output) = 0;
    // The lookup ended without output: a refused transport or command, a lost connection, or a command
    // that printed nothing. Exactly one of the two callbacks ends every connection.
    virtual void pidFailedWithError(const AdbError &error) = 0;
};

// Runs "ps -A" (or "ps") on one device once and hands over the complete output.
class PidReader : public AdbRequestSocket
{
public:
    enum Tag : long {
        FailureLengthTag = 0,
        FailureMessageTag = 1,
        TransportReplyTag = 2,
        PsReplyTag = 3,
        LineTag = 4,
    };

    PidReader();

    void setDelegate(PidReaderDelegate *delegate);
    PidReaderDelegate *delegate() const;
    // true: "shell:ps -A"; false: "shell:ps". Set before connect().
    void setAddDashArg(bool addDashArg);
    bool addDashArg() const;

    void didDisconnect(const std::optional<AdbError> &error) override;

protected:
    void startRequest() override;
    void replyNotOkay(QByteArrayView reply, long tag) override;
    void unknownReadState(long tag) override;

private:
    std::atomic<PidReaderDelegate *> m_delegate{nullptr};
    std::atomic<bool> m_addDashArg{true};
};
