// SPDX-License-Identifier: MIT
#include "Android/AdbProtocol.h"

namespace AdbProtocol {

QByteArray lengthHeader(const QString &request)
{
    return QByteArray::number(static_cast<qulonglong>(request.size()), 16).rightJustified(4, '0');
}

QByteArray frameRequest(const QString &request)
{
    return lengthHeader(request) + request.toUtf8();
}

bool isOkay(QByteArrayView data)
{
    return data == QByteArrayView("OKAY");
}

QByteArray okayReply()
{
    return QByteArrayLiteral("OKAY");
}

QByteArray failReply(QByteArrayView message)
{
    return QByteArrayLiteral("FAIL") + lengthPrefixed(message);
}

QByteArray lengthPrefixed(QByteArrayView payload)
{
    return QByteArray::number(static_cast<qulonglong>(payload.size()), 16).rightJustified(lengthSize, '0') +
           payload.toByteArray();
}

StatusReply parseStatusReply(QByteArrayView received)
{
    if (received.size() < statusSize)
        return {};
    if (isOkay(received.first(statusSize)))
        return {StatusReply::Okay, {}, statusSize};
    if (received.size() < statusSize + lengthSize)
        return {};
    const qsizetype length = hexDataToInteger(received.sliced(statusSize, lengthSize));
    const qsizetype end = statusSize + lengthSize + length;
    if (received.size() < end)
        return {};
    return {StatusReply::Failed, received.sliced(statusSize + lengthSize, length).toByteArray(), end};
}

Utf8Decoder::Utf8Decoder()
    // Stateless: a truncated sequence at the end counts as invalid instead of waiting for more bytes.
    // ConvertInitialBom keeps a leading U+FEFF as a character, so the text is exactly the bytes.
    : m_decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom)
{
}

std::optional<QString> Utf8Decoder::decode(QByteArrayView data)
{
    m_decoder.resetState();
    QString text = m_decoder.decode(data);
    if (m_decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<QString> stringFromData(QByteArrayView data)
{
    Utf8Decoder decoder;
    return decoder.decode(data);
}

quint32 hexStringToInteger(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    if (i + 1 < text.size() && text[i] == u'0' && (text[i + 1] == u'x' || text[i + 1] == u'X'))
        i += 2;
    quint64 value = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        int digit;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        else
            break;
        value = value * 16 + static_cast<quint64>(digit);
        if (value > 0xffffffffULL)
            value = 0x1'0000'0000ULL; // saturate; keeps consuming digits like a scanner does
    }
    return value > 0xffffffffULL ? 0xffffffffU : static_cast<quint32>(value);
}

quint32 hexDataToInteger(QByteArrayView data)
{
    const std::optional<QString> text = stringFromData(data);
    return text ? hexStringToInteger(*text) : 0;
}

} // namespace AdbProtocol
