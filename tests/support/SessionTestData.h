// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <utility>

// One threadtime line as logcat writes it (date "01-23"), with its line feed.
inline QString logcatLine(const QString &time, int pid, int tid, const QString &level, const QString &tag,
                          const QString &text)
{
    return QStringLiteral("01-23 %1 %2 %3 %4 %5: %6\n").arg(time).arg(pid, 5).arg(tid, 5).arg(level, tag, text);
}

// A process list longer than 99 characters: a toybox header plus the given processes.
inline QString psOutput(const QList<std::pair<int, QString>> &processes)
{
    QString out = QStringLiteral("USER           PID  PPID     VSZ    RSS WCHAN            ADDR S NAME\n");
    for (const auto &[pid, name] : processes)
        out += QStringLiteral("u0_a12 %1 567 1000 200 0 0 S %2\n").arg(pid).arg(name);
    return out;
}

// The "text" field of each entry.
inline QStringList textsOf(const QList<LogEntry> &entries)
{
    QStringList out;
    for (const LogEntry &e : entries)
        out.append(e.value(LogEntry::Text));
    return out;
}
