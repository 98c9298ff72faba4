// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringDecoder>
#include <QStringView>

#include <optional>

// The ADB host protocol's framing, with no socket and no thread.
namespace AdbProtocol {

// Four (or more, above 0xffff) lower-case hex digits of the request's UTF-16 code-unit count, as
// "%.4lx" prints it. The count, not the UTF-8 byte count, is what the server is told.
QByteArray lengthHeader(const QString &request);

// Header followed by the request's UTF-8 bytes: the bytes a request puts on the wire.
QByteArray frameRequest(const QString &request);

// True only for exactly the four bytes "OKAY".
bool isOkay(QByteArrayView data);

// The bytes as UTF-8; empty optional when they are not valid UTF-8.
std::optional<QString> stringFromData(QByteArrayView data);

// Unsigned 32-bit hex number at the start of the text: leading white space skipped, optional "0x",
// digits of either case; 0 when there are no digits, 0xffffffff when the number overflows.
quint32 hexStringToInteger(QStringView text);

// stringFromData then hexStringToInteger; 0 for bytes that are not UTF-8.
quint32 hexDataToInteger(QByteArrayView data);

// Reusable strict UTF-8 decoder for the line path: one QString per call, no other allocation.
class Utf8Decoder
{
public:
    Utf8Decoder();
    std::optional<QString> decode(QByteArrayView data);

private:
    QStringDecoder m_decoder;
};

} // namespace AdbProtocol
