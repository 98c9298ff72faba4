// SPDX-License-Identifier: MIT
#include "Android/PidReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

PidReader::PidReader()
    : AdbRequestSocket({.transportReply = TransportReplyTag,
                        .requestReplies = {PsReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag})
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
    m_resultData = QByteArray();
    sendRequest(m_addDashArg ? QStringLiteral("shell:ps -A") : QStringLiteral("shell:ps"), PsReplyTag);
}

void PidReader::requestAccepted(long)
{
    readWithTag(LineTag);
}

bool PidReader::readOwn(QByteArrayView data, long tag)
{
    if (tag != LineTag)
        return false;
    if (m_resultData)
        m_resultData->append(data.data(), data.size());
    readWithTag(LineTag);
    return true;
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
    if (m_resultData && !m_resultData->isEmpty()) {
        const std::optional<QString> output = AdbProtocol::stringFromData(*m_resultData);
        if (PidReaderDelegate *d = m_delegate.load())
            d->pidReceived(output);
    }
}
