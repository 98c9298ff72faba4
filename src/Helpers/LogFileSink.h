// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/Clock.h"

#include <QString>

#include <spdlog/details/file_helper.h>
#include <spdlog/sinks/base_sink.h>

#include <mutex>

// The diagnostic log's file: one file only. Before a line is written, the file is rolled (deleted and
// started afresh) when the line would take it past maxBytes or when it is rollIntervalMs old; no archive
// is kept. A line larger than maxBytes still goes into a fresh file whole.
// Every line is flushed at once, so a crash loses nothing that was handed to the sink.
class LogFileSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    // Opens (creating folders as needed) or reuses the file at path; an existing file's age is taken
    // from its creation time. Throws spdlog::spdlog_ex when the file cannot be opened.
    LogFileSink(const QString &path, qint64 maxBytes, qint64 rollIntervalMs, const Clock &clock = Clock::system());

    QString path() const { return m_path; }
    // Number of times the file was rolled.
    int rollCount();

protected:
    void sink_it_(const spdlog::details::log_msg &msg) override;
    void flush_() override;

private:
    void roll();

    const QString m_path;
    const qint64 m_maxBytes;
    const qint64 m_rollIntervalMs;
    const Clock &m_clock;
    spdlog::details::file_helper m_file;
    qint64 m_size = 0;
    qint64 m_createdAtMs = 0; // on m_clock
    int m_rollCount = 0;
};
