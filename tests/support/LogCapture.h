// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/Logger.h"

#include <QList>
#include <QMutex>
#include <QPair>
#include <QStringList>

#include <optional>

// Collects the diagnostic log's messages, from any thread, while it lives.
class LogCapture
{
public:
    LogCapture()
    {
        Logger::getInstance().setObserver([this](LogLevel level, const QString &message) {
            QMutexLocker lock(&m_mutex);
            m_seen.append({level, message});
        });
    }
    ~LogCapture() { Logger::getInstance().setObserver({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QList<QPair<LogLevel, QString>> seen() const
    {
        QMutexLocker lock(&m_mutex);
        return m_seen;
    }
    QStringList lines(std::optional<LogLevel> level = std::nullopt) const
    {
        QStringList out;
        for (const auto &[l, message] : seen()) {
            if (!level || l == *level)
                out.append(message);
        }
        return out;
    }
    QStringList startingWith(const QString &prefix) const
    {
        QStringList out = lines();
        out.removeIf([&](const QString &line) { return !line.startsWith(prefix); });
        return out;
    }
    int count(const QString &prefix) const { return int(startingWith(prefix).size()); }

private:
    mutable QMutex m_mutex;
    QList<QPair<LogLevel, QString>> m_seen;
};
