// SPDX-License-Identifier: MIT
#include "Android/DeviceListReader.h"

#include "Android/AdbProtocol.h"

DeviceListReader::DeviceListReader()
    : AdbRequestSocket({.transportReply = -1,
                        .requestReplies = {DevicesReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag})
{
}

void DeviceListReader::setDelegate(DeviceListReaderDelegate *delegate)
{
    m_delegate = delegate;
}

DeviceListReaderDelegate *DeviceListReader::delegate() const
{
    return m_delegate;
}

void DeviceListReader::startRequest()
{
    sendRequest(QStringLiteral("host:devices"), DevicesReplyTag);
}

void DeviceListReader::requestAccepted(long)
{
    readLength(AdbProtocol::lengthSize, ListLengthTag);
}

bool DeviceListReader::readOwn(QByteArrayView data, long tag)
{
    if (tag == ListLengthTag) {
        const quint32 length = AdbProtocol::hexDataToInteger(data);
        if (length == 0) {
            if (DeviceListReaderDelegate *d = m_delegate.load())
                d->deviceListFailedWithError(1);
        }
        readLength(static_cast<qsizetype>(length), ListTag); // a zero length reads nothing
        return true;
    }
    if (tag == ListTag) {
        const std::optional<QString> list = AdbProtocol::stringFromData(data);
        if (DeviceListReaderDelegate *d = m_delegate.load())
            d->devicesReceived(list);
        return true;
    }
    return false;
}

void DeviceListReader::adbNotRunningError(const AdbError &error)
{
    AdbSocket::adbNotRunningError(error);
    if (DeviceListReaderDelegate *d = m_delegate.load())
        d->deviceListFailedWithError(0);
}

void DeviceListReader::adbDeviceNotFound(const AdbError &error)
{
    AdbSocket::adbDeviceNotFound(error);
    if (DeviceListReaderDelegate *d = m_delegate.load())
        d->deviceListFailedWithError(1);
}
