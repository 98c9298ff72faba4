// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/Logger.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

// Collects every diagnostic line written while it lives (from any thread).
class LogCapture
{
public:
    LogCapture()
    {
        Logger::getInstance().setObserver([this](LogLevel, const QString &message) {
            QMutexLocker lock(&m_mutex);
            m_lines << message;
        });
    }
    ~LogCapture() { Logger::getInstance().setObserver({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QStringList lines() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    // Lines that start with `prefix`.
    int count(const QString &prefix) const
    {
        QMutexLocker lock(&m_mutex);
        int n = 0;
        for (const QString &line : m_lines)
            n += line.startsWith(prefix);
        return n;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
