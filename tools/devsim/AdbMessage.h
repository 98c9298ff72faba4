// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <cstdint>
#include <optional>

// One message of the ADB transport protocol between the adb server and a device:
// a 24-byte little-endian header (command, arg0, arg1, data length, data checksum,
// magic = command ^ 0xffffffff) followed by the data.
struct AdbMessage
{
    static constexpr uint32_t kSync = 0x434e5953;
    static constexpr uint32_t kCnxn = 0x4e584e43;
    static constexpr uint32_t kAuth = 0x48545541;
    static constexpr uint32_t kOpen = 0x4e45504f;
    static constexpr uint32_t kOkay = 0x59414b4f;
    static constexpr uint32_t kClse = 0x45534c43;
    static constexpr uint32_t kWrte = 0x45545257;

    // From this version on both sides skip the data checksum (sent as 0, never checked).
    static constexpr uint32_t kVersionSkipChecksum = 0x01000001;
    static constexpr int kHeaderSize = 24;

    uint32_t command = 0;
    uint32_t arg0 = 0;
    uint32_t arg1 = 0;
    QByteArray data;

    // Header plus data; the checksum is the byte sum unless the peer's protocol skips it.
    QByteArray encode(bool withChecksum) const;
    static QByteArray encodeHeader(uint32_t command, uint32_t arg0, uint32_t arg1, const char *data, qsizetype size,
                                   bool withChecksum);
    static uint32_t checksum(const char *data, qsizetype size);
    static QByteArray commandName(uint32_t command);
};

// Splits a byte stream into messages; feed it whatever the socket delivered.
class AdbMessageParser
{
public:
    explicit AdbMessageParser(uint32_t maxData) : m_maxData(maxData) {}

    void append(const QByteArray &bytes) { m_buffer.append(bytes); }

    // The next complete message, or nullopt when more bytes are needed or the stream is broken
    // (check isBroken(): a bad magic or an oversized length ends the connection).
    std::optional<AdbMessage> next();
    bool isBroken() const { return m_broken; }

private:
    QByteArray m_buffer;
    qsizetype m_offset = 0;
    uint32_t m_maxData;
    bool m_broken = false;
};
