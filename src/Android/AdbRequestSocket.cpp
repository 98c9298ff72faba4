// SPDX-License-Identifier: MIT
#include "Android/AdbRequestSocket.h"

#include "Android/AdbProtocol.h"

AdbRequestSocket::AdbRequestSocket(Tags tags) : m_tags(std::move(tags)) {}

void AdbRequestSocket::didConnect(const QString &host, quint16 port)
{
    AdbSocket::didConnect(host, port);
    if (m_tags.transportReply >= 0)
        sendDeviceId(m_tags.transportReply);
    else
        startRequest();
}

void AdbRequestSocket::didRead(QByteArrayView data, long tag)
{
    // Output and the reader's own reads first: that is where a stream's data arrives.
    if (tag == m_tags.output && m_output) {
        m_output->append(data.data(), data.size());
        readWithTag(m_tags.output);
        return;
    }
    if (readOwn(data, tag))
        return;
    if (tag == m_tags.transportReply || m_tags.requestReplies.contains(tag)) {
        if (!AdbProtocol::isOkay(data))
            replyNotOkay(data, tag);
        else if (tag == m_tags.transportReply)
            startRequest();
        else
            requestAccepted(tag);
    } else if (tag == m_tags.failureLength) {
        readLength(static_cast<qsizetype>(AdbProtocol::hexDataToInteger(data)), m_tags.failureMessage);
    } else if (tag == m_tags.failureMessage) {
        failed(AdbProtocol::stringFromData(data).value_or(QString()));
    } else {
        unknownReadState(tag);
    }
}

void AdbRequestSocket::sendRequest(const QString &request, long replyTag, double timeout)
{
    if (m_tags.output >= 0)
        m_output = QByteArray();
    sendExpectOkay(request, timeout, replyTag);
}

void AdbRequestSocket::requestAccepted(long)
{
    if (m_tags.output >= 0)
        readWithTag(m_tags.output);
}

void AdbRequestSocket::replyNotOkay(QByteArrayView reply, long)
{
    logNotOkay(reply);
}

void AdbRequestSocket::readFailure()
{
    readLength(AdbProtocol::lengthSize, m_tags.failureLength);
}

void AdbRequestSocket::failed(const QString &) {}

bool AdbRequestSocket::readOwn(QByteArrayView, long)
{
    return false;
}

void AdbRequestSocket::unknownReadState(long tag)
{
    logUnknownReadState(tag);
}
