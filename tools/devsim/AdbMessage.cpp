// SPDX-License-Identifier: MIT
#include "AdbMessage.h"

#include <QtEndian>

namespace {
void putLE(char *out, uint32_t value)
{
    qToLittleEndian<quint32>(value, out);
}
uint32_t getLE(const char *in)
{
    return qFromLittleEndian<quint32>(in);
}
} // namespace

uint32_t AdbMessage::checksum(const char *data, qsizetype size)
{
    uint32_t sum = 0;
    for (qsizetype i = 0; i < size; ++i)
        sum += static_cast<unsigned char>(data[i]);
    return sum;
}

QByteArray AdbMessage::encodeHeader(uint32_t command, uint32_t arg0, uint32_t arg1, const char *data, qsizetype size,
                                    bool withChecksum)
{
    QByteArray header(kHeaderSize, Qt::Uninitialized);
    char *p = header.data();
    putLE(p, command);
    putLE(p + 4, arg0);
    putLE(p + 8, arg1);
    putLE(p + 12, static_cast<uint32_t>(size));
    putLE(p + 16, withChecksum ? checksum(data, size) : 0);
    putLE(p + 20, command ^ 0xffffffffu);
    return header;
}

QByteArray AdbMessage::encode(bool withChecksum) const
{
    QByteArray out = encodeHeader(command, arg0, arg1, data.constData(), data.size(), withChecksum);
    out.append(data);
    return out;
}

QByteArray AdbMessage::commandName(uint32_t command)
{
    QByteArray name(4, Qt::Uninitialized);
    putLE(name.data(), command);
    for (char &c : name)
        if (c < 0x20 || c > 0x7e)
            c = '?';
    return name;
}

std::optional<AdbMessage> AdbMessageParser::next()
{
    if (m_broken || m_buffer.size() - m_offset < AdbMessage::kHeaderSize)
        return std::nullopt;
    const char *p = m_buffer.constData() + m_offset;
    AdbMessage message;
    message.command = getLE(p);
    message.arg0 = getLE(p + 4);
    message.arg1 = getLE(p + 8);
    const uint32_t length = getLE(p + 12);
    const uint32_t magic = getLE(p + 20);
    if (magic != (message.command ^ 0xffffffffu) || length > m_maxData) {
        m_broken = true;
        return std::nullopt;
    }
    if (m_buffer.size() - m_offset < AdbMessage::kHeaderSize + qsizetype(length))
        return std::nullopt;
    message.data = m_buffer.mid(m_offset + AdbMessage::kHeaderSize, length);
    m_offset += AdbMessage::kHeaderSize + length;
    // Compact once the consumed prefix dominates, so appends stay amortised O(1).
    if (m_offset == m_buffer.size()) {
        m_buffer.clear();
        m_offset = 0;
    } else if (m_offset > 65536 && m_offset * 2 > m_buffer.size()) {
        m_buffer.remove(0, m_offset);
        m_offset = 0;
    }
    return message;
}
