// SPDX-License-Identifier: MIT
#include "Android/DeviceNameReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

#include <QRegularExpression>

void DeviceNameReader::setDelegate(DeviceNameReaderDelegate *delegate)
{
    m_delegate = delegate;
}

DeviceNameReaderDelegate *DeviceNameReader::delegate() const
{
    return m_delegate;
}

void DeviceNameReader::didConnect(const QString &host, quint16 port)
{
    AdbSocket::didConnect(host, port);
    sendDeviceId(TransportReplyTag);
}

void DeviceNameReader::loadDeviceModel()
{
    m_resultData = QByteArray();
    sendExpectOkay(QStringLiteral("shell:getprop ro.product.model"), -1.0, GetpropReplyTag);
}

void DeviceNameReader::didRead(QByteArrayView data, long tag)
{
    switch (tag) {
    case TransportReplyTag:
    case GetpropReplyTag:
        if (!AdbProtocol::isOkay(data)) {
            logNotOkay(data);
            return;
        }
        if (tag == TransportReplyTag)
            loadDeviceModel();
        else
            readWithTag(LineTag);
        return;
    case LineTag:
        if (m_resultData)
            m_resultData->append(data.data(), data.size());
        readWithTag(LineTag);
        return;
    case FailureLengthTag:
        readLength(static_cast<qsizetype>(AdbProtocol::hexDataToInteger(data)), FailureMessageTag);
        return;
    case FailureMessageTag: {
        const AdbError error = logReaderError(1, AdbProtocol::stringFromData(data).value_or(QString()));
        if (DeviceNameReaderDelegate *d = m_delegate.load())
            d->deviceNameFailedWithError(error, deviceId());
        return;
    }
    default:
        logUnknownReadState(tag);
        return;
    }
}

std::optional<QString> DeviceNameReader::modelFromOutput(QByteArrayView output)
{
    const std::optional<QString> text = AdbProtocol::stringFromData(output);
    if (!text)
        return std::nullopt;
    static const QRegularExpression newlines(QStringLiteral("[\\n\\r\\x{0b}\\x{0c}\\x{85}\\x{2028}\\x{2029}]"));
    std::optional<QString> model;
    for (const QString &piece : text->split(newlines)) {
        QF_LOG(piece);
        if (!model && !piece.isEmpty())
            model = piece;
    }
    return model;
}

void DeviceNameReader::didDisconnect(const std::optional<AdbError> &)
{
    // Deliberately without the base reaction: a lookup that never connected just ends.
    if (!m_resultData || m_resultData->isEmpty())
        return;
    const QByteArray output = std::exchange(*m_resultData, QByteArray());
    if (const std::optional<QString> model = modelFromOutput(output)) {
        if (DeviceNameReaderDelegate *d = m_delegate.load())
            d->deviceNameReceived(*model, deviceId());
    }
}
