// SPDX-License-Identifier: MIT
#include "Helpers/LogFileSink.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

LogFileSink::LogFileSink(const QString &path, qint64 maxBytes, qint64 rollIntervalMs, const Clock &clock)
    : m_path(path), m_maxBytes(maxBytes), m_rollIntervalMs(rollIntervalMs), m_clock(clock)
{
    const QFileInfo info(path);
    qint64 ageMs = 0;
    if (info.exists()) {
        // lastModified is only a fallback: a file written all day would never look old by it.
        const QDateTime created = info.birthTime().isValid() ? info.birthTime() : info.lastModified();
        ageMs = qMax<qint64>(0, created.msecsTo(QDateTime::currentDateTime()));
    }
    m_file.open(QFile::encodeName(path).toStdString());
    m_size = qint64(m_file.size());
    m_createdAtMs = m_clock.nowMs() - ageMs;
}

int LogFileSink::rollCount()
{
    std::lock_guard lock(mutex_);
    return m_rollCount;
}

void LogFileSink::sink_it_(const spdlog::details::log_msg &msg)
{
    spdlog::memory_buf_t line;
    formatter_->format(msg, line);
    const auto length = qint64(line.size());
    const bool tooBig = m_size + length > m_maxBytes;
    const bool tooOld = m_clock.nowMs() - m_createdAtMs >= m_rollIntervalMs;
    if (m_size > 0 && (tooBig || tooOld))
        roll();
    m_file.write(line);
    m_file.flush();
    m_size += length;
}

void LogFileSink::flush_()
{
    m_file.flush();
}

void LogFileSink::roll()
{
    // Deleting rather than truncating gives the new file its own creation time.
    m_file.close();
    QFile::remove(m_path);
    m_file.open(QFile::encodeName(m_path).toStdString(), true);
    m_size = 0;
    m_createdAtMs = m_clock.nowMs();
    ++m_rollCount;
}
