// SPDX-License-Identifier: MIT
#include "Android/DeviceListReader.h"

#include "Android/AdbProtocol.h"

void DeviceListReader::setDelegate(DeviceListReaderDelegate *delegate)
{
    m_delegate = delegate;
}

DeviceListReaderDelegate *DeviceListReader::delegate() const
{
    return m_delegate;
}

void DeviceListReader::didConnect(const QString &host, quint16 port)
{
    AdbSocket::didConnect(host, port);
    loadDeviceList();
}

void DeviceListReader::loadDeviceList()
{
    sendExpectOkay(QStringLiteral("host:devices"), -1.0, DevicesReplyTag);
}

void DeviceListReader::didRead(QByteArrayView data, long tag)
{
    switch (tag) {
    case DevicesReplyTag:
        if (AdbProtocol::isOkay(data))
            readLength(4, ListLengthTag);
        else
            logNotOkay(data);
        return;
    case ListLengthTag: {
        const quint32 length = AdbProtocol::hexDataToInteger(data);
        if (length == 0) {
            if (DeviceListReaderDelegate *d = m_delegate.load())
                d->deviceListFailedWithError(1);
        }
        readLength(static_cast<qsizetype>(length), ListTag); // a zero length reads nothing
        return;
    }
    case ListTag: {
        const std::optional<QString> list = AdbProtocol::stringFromData(data);
        if (DeviceListReaderDelegate *d = m_delegate.load())
            d->devicesReceived(list);
        return;
    }
    case FailureLengthTag:
        readLength(static_cast<qsizetype>(AdbProtocol::hexDataToInteger(data)), FailureMessageTag);
        return;
    case FailureMessageTag:
        return;
    default:
        logUnknownReadState(tag);
        return;
    }
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
