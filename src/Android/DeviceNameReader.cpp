// SPDX-License-Identifier: MIT
#include "Android/DeviceNameReader.h"

#include "Android/AdbProtocol.h"
#include "Helpers/Logger.h"

#include <QRegularExpression>

DeviceNameReader::DeviceNameReader()
    : AdbRequestSocket({.transportReply = TransportReplyTag,
                        .requestReplies = {GetpropReplyTag},
                        .failureLength = FailureLengthTag,
                        .failureMessage = FailureMessageTag,
                        .output = LineTag})
{
}

void DeviceNameReader::setDelegate(DeviceNameReaderDelegate *delegate)
{
    m_delegate = delegate;
}

DeviceNameReaderDelegate *DeviceNameReader::delegate() const
{
    return m_delegate;
}

void DeviceNameReader::startRequest()
{
    sendRequest(QStringLiteral("shell:getprop ro.product.model"), GetpropReplyTag);
}

void DeviceNameReader::failed(const QString &message)
{
    const AdbError error = logReaderError(1, message);
    if (DeviceNameReaderDelegate *d = m_delegate.load())
        d->deviceNameFailedWithError(error, deviceId());
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
    const QByteArray output = takeOutput();
    if (output.isEmpty())
        return;
    if (const std::optional<QString> model = modelFromOutput(output)) {
        if (DeviceNameReaderDelegate *d = m_delegate.load())
            d->deviceNameReceived(*model, deviceId());
    }
}
