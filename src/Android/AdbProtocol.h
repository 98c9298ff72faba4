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

// Replies, server to client: a four-byte status, and after "FAIL" four hex digits of the message's
// byte count and the message. A "host:" payload comes with the same four-digit byte count.
inline constexpr qsizetype statusSize = 4;
inline constexpr qsizetype lengthSize = 4;

// True only for exactly the four bytes "OKAY".
bool isOkay(QByteArrayView data);

QByteArray okayReply();
QByteArray failReply(QByteArrayView message);
// Four (or more) lower-case hex digits of the byte count, then the bytes.
QByteArray lengthPrefixed(QByteArrayView payload);

// A status reply read from the start of the bytes received so far, the way the readers read it: four
// bytes that are exactly "OKAY", or any other four followed by a hex length and that many bytes.
struct StatusReply
{
    enum Kind { Incomplete, Okay, Failed };
    Kind kind = Incomplete;
    QByteArray message; // Failed only
    qsizetype consumed = 0;

    friend bool operator==(const StatusReply &, const StatusReply &) = default;
};
StatusReply parseStatusReply(QByteArrayView received);

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
