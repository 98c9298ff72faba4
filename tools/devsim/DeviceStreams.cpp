// SPDX-License-Identifier: MIT
#include "DeviceStreams.h"

#include "DeviceLog.h"

QByteArray FixedStream::read(qsizetype maxBytes)
{
    const QByteArray chunk = m_output.mid(m_offset, maxBytes);
    m_offset += chunk.size();
    return chunk;
}

LogcatStream::LogcatStream(DeviceLog &log, bool dump) : m_log(log), m_dump(dump)
{
    m_pending = "--------- beginning of main\n" + log.snapshot();
    if (!m_dump)
        m_log.addReader(this);
}

LogcatStream::~LogcatStream()
{
    if (!m_dump)
        m_log.removeReader(this);
}

void LogcatStream::appendLive(const QByteArray &batch)
{
    if (m_pending.size() - m_offset + batch.size() > kMaxPending)
        return;
    if (m_offset == m_pending.size()) {
        m_pending = batch; // shares the batch; no copy when this reader is up to date
        m_offset = 0;
    } else {
        m_pending.append(batch);
    }
    wake();
}

QByteArray LogcatStream::read(qsizetype maxBytes)
{
    if (m_offset == m_pending.size() && !m_dump)
        m_log.produceOnDemand(maxBytes); // lands in m_pending through appendLive
    QByteArray chunk;
    if (m_offset == 0 && m_pending.size() <= maxBytes) {
        chunk = m_pending;
        m_pending.clear();
    } else {
        chunk = m_pending.mid(m_offset, maxBytes);
        m_offset += chunk.size();
        if (m_offset == m_pending.size()) {
            m_pending.clear();
            m_offset = 0;
        }
    }
    return chunk;
}

CrlfStream::CrlfStream(std::unique_ptr<DeviceStream> inner) : m_inner(std::move(inner))
{
    m_inner->setWakeHandler([this] { wake(); });
}

QByteArray CrlfStream::read(qsizetype maxBytes)
{
    if (m_carry.size() < maxBytes) {
        const QByteArray raw = m_inner->read(std::max<qsizetype>(1, (maxBytes - m_carry.size()) / 2));
        for (char c : raw) {
            if (c == '\n')
                m_carry.append('\r');
            m_carry.append(c);
        }
    }
    const QByteArray chunk = m_carry.left(maxBytes);
    m_carry.remove(0, chunk.size());
    return chunk;
}
