// SPDX-License-Identifier: MIT
#include "Android/PidReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

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

void PidReader::didConnect(const QString &host, quint16 port)
{
    AdbSocket::didConnect(host, port);
    sendDeviceId(TransportReplyTag);
}

void PidReader::loadPids()
{
    m_resultData = QByteArray();
    sendExpectOkay(m_addDashArg ? QStringLiteral("shell:ps -A") : QStringLiteral("shell:ps"), -1.0, PsReplyTag);
}

void PidReader::didRead(QByteArrayView data, long tag)
{
    switch (tag) {
    case FailureLengthTag:
        readLength(static_cast<qsizetype>(AdbProtocol::hexDataToInteger(data)), FailureMessageTag);
        return;
    case FailureMessageTag:
        return; // the message is not used
    case TransportReplyTag:
    case PsReplyTag:
        if (!AdbProtocol::isOkay(data)) {
            logNotOkay(data);
            stop();
            return;
        }
        if (tag == TransportReplyTag)
            loadPids();
        else
            readWithTag(LineTag);
        return;
    case LineTag:
        if (m_resultData)
            m_resultData->append(data.data(), data.size());
        readWithTag(LineTag);
        return;
    default:
        stop();
        logUnknownReadState(tag);
        return;
    }
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
