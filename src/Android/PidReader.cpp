// SPDX-License-Identifier: MIT
#include "Android/PidReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

PidReader::PidReader()
    : AdbRequestSocket({.transportReply = TransportReplyTag,
                        .requestReplies = {PsReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag,
                        .output = LineTag})
{
}

void PidReader::setDelegate(PidReaderDelegate *delegate)
{
    m_delegate = delegate;
}

PidReaderDelegate *PidReader::delegate() const
{
    return m_delegate;
}

void PidReader::setAddDashArg(bool addDashArg)
{
    m_addDashArg = addDashArg;
}

bool PidReader::addDashArg() const
{
    return m_addDashArg;
}

void PidReader::startRequest()
{
    sendRequest(m_addDashArg ? QStringLiteral("shell:ps -A") : QStringLiteral("shell:ps"), PsReplyTag);
}

void PidReader::replyNotOkay(QByteArrayView reply, long tag)
{
    AdbRequestSocket::replyNotOkay(reply, tag);
    stop();
}

void PidReader::unknownReadState(long tag)
{
    stop();
    AdbRequestSocket::unknownReadState(tag);
}

void PidReader::didDisconnect(const std::optional<AdbError> &error)
{
    if (error && error->code != AsyncSocket::ClosedError)
        QF_LOG_ERROR(QStringLiteral("Error: %1").arg(error->toString()));
    AdbSocket::didDisconnect(error);
    PidReaderDelegate *d = m_delegate.load();
    if (const QByteArray bytes = takeOutput(); !bytes.isEmpty()) {
        const std::optional<QString> output = AdbProtocol::stringFromData(bytes);
        if (d)
            d->pidReceived(output);
        return;
    }
    // Users lost app names for good when a lookup to a device that had just gone away ended silently:
    // the owner kept it marked as running. So an ending without output is reported.
    if (d)
        d->pidFailedWithError(error && error->code != AsyncSocket::ClosedError
                                  ? *error
                                  : AdbError::logReaderError(2, QStringLiteral("ps ended without output")));
}
