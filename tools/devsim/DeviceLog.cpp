// SPDX-License-Identifier: MIT
#include "DeviceLog.h"

#include "DeviceStreams.h"

#include <cmath>

DeviceLog::DeviceLog(const DeviceConfig &config, QObject *parent)
    : QObject(parent), m_config(config), m_generator(config.seed)
{
    m_generator.setSequenceNumbered(m_config.sequence);
    m_generator.startInPast(m_config.buffer);
    QByteArray past;
    for (int i = 0; i < m_config.buffer; ++i) {
        past.clear();
        m_generator.appendLine(past);
        m_ring.push_back(past);
    }
    if (!floods()) {
        m_timer.setInterval(10);
        connect(&m_timer, &QTimer::timeout, this, &DeviceLog::onTick);
        m_timer.start();
        m_clock.start();
    }
}

QByteArray DeviceLog::snapshot() const
{
    QByteArray out;
    for (const QByteArray &line : m_ring)
        out.append(line);
    return out;
}

void DeviceLog::clear()
{
    m_ring.clear();
}

void DeviceLog::addReader(LogcatStream *reader)
{
    m_readers.append(reader);
}

void DeviceLog::removeReader(LogcatStream *reader)
{
    m_readers.removeAll(reader);
}

int64_t DeviceLog::linesLeft() const
{
    return m_config.lines < 0 ? INT64_MAX : std::max<int64_t>(0, m_config.lines - m_produced);
}

void DeviceLog::onTick()
{
    const auto due = int64_t(std::floor(double(m_clock.elapsed()) * m_config.rate / 1000.0));
    if (due > m_produced)
        produce(qsizetype(std::min<int64_t>(due - m_produced, 1'000'000)), m_config.maxData * qsizetype(16));
}

void DeviceLog::produceOnDemand(qsizetype bytes)
{
    if (floods())
        produce(qsizetype(std::min<int64_t>(linesLeft(), 1'000'000)), bytes);
}

void DeviceLog::produce(qsizetype maxLines, qsizetype maxBytes)
{
    maxLines = qsizetype(std::min<int64_t>(maxLines, linesLeft()));
    if (maxLines <= 0)
        return;
    QByteArray batch;
    batch.reserve(maxBytes + 8192); // one line past maxBytes at most
    qsizetype lines = 0;
    while (lines < maxLines && batch.size() < maxBytes) {
        m_generator.appendLine(batch);
        ++lines;
    }
    m_produced += lines;
    remember(batch, lines);
    for (LogcatStream *reader : std::as_const(m_readers))
        reader->appendLive(batch);
}

void DeviceLog::remember(const QByteArray &batch, qsizetype lines)
{
    if (m_config.buffer <= 0)
        return;
    // Only the tail of a big batch can survive in the ring: the j-th line feed found walking
    // back from the end (the last one excluded) starts the last j lines.
    const qsizetype keep = std::min<qsizetype>(lines, m_config.buffer);
    qsizetype start = 0;
    qsizetype found = 0;
    for (qsizetype i = batch.size() - 2; i >= 0; --i) {
        if (batch.at(i) == '\n' && ++found == keep) {
            start = i + 1;
            break;
        }
    }
    qsizetype pos = start;
    while (pos < batch.size()) {
        const qsizetype nl = batch.indexOf('\n', pos);
        const qsizetype end = nl < 0 ? batch.size() : nl + 1;
        m_ring.push_back(batch.mid(pos, end - pos));
        pos = end;
    }
    while (m_ring.size() > size_t(m_config.buffer))
        m_ring.pop_front();
}
