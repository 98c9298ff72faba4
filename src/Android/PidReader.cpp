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
    if (const QByteArray bytes = takeOutput(); !bytes.isEmpty()) {
        const std::optional<QString> output = AdbProtocol::stringFromData(bytes);
        if (PidReaderDelegate *d = m_delegate.load())
            d->pidReceived(output);
    }
}
