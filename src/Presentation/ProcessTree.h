// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QString>
#include <QStringView>

// The process tree text: which processes and threads wrote the given lines, and how many lines each.
// Processes in numeric order of their ids, each with its thread lines; the box-drawing layout is fixed:
//
//     // Format:
//     //\t PID ─┬ (log message count) AppName
//     //\t      └─ TID (log message count)
//
// A process is named after the "app" of its last line. Lines without a pid (or "---", the program's
// own lines) are not counted; lines without a tid (or "-") count for the process but get no thread.
// Pure: no widgets, any thread.
class ProcessTree
{
public:
    ProcessTree() = delete;

    static QString text(const QList<LogEntry> &entries);

    // Text order with runs of digits compared by their value ("12" < "100" < "abc"); equal values with
    // different leading zeros fall back to plain order, so the order is total.
    static int numericCompare(QStringView a, QStringView b);
};
