// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// Catches the fatal signals (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT) and writes one report file before
// the signal takes its default course: signal, version, revision, time, seconds since start, the
// backtrace and the tail of the diagnostic log (format: CrashReports). The handler uses only
// async-signal-safe calls; the file name and every fixed text are prepared by install().
class CrashHandler
{
public:
    CrashHandler() = delete;

    // First thing in main, once. folder is created; logFile may not exist yet. False when the folder
    // cannot be made or a path is too long (then no handler is installed).
    static bool install(const QString &folder, const QString &logFile, const char *version, const char *revision);
};
