// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// One report as CrashHandler wrote it.
struct CrashReport
{
    QString path;
    int signal = 0;
    QString signalName; // "SIGSEGV"
    QString version;
    QString revision;
    qint64 time = 0;       // Unix seconds of the crash
    qint64 runSeconds = 0; // since the program started
    QString backtrace;
    QString log; // the last whole lines of the diagnostic log
};

// The crash folder: finding, reading, formatting and removing reports. A report file is text:
//   signal: 11 SIGSEGV
//   version: 0.1.0
//   revision: 1a2b3c4
//   time: 1700000000
//   run: 42
//   backtrace:
//   <one frame a line>
//   log:
//   <the tail of the diagnostic log>
class CrashReports
{
public:
    // Reports kept when nothing sends them; older ones are removed.
    static constexpr int Kept = 5;
    // Lines of the diagnostic log sent with a report.
    static constexpr int LogLines = 40;

    explicit CrashReports(QString folder);
    // "<application data folder>/crashes"
    static QString defaultFolder();
    QString folder() const { return m_folder; }

    // The report files, newest first; all but the Kept newest are removed first.
    QStringList pending() const;

    static std::optional<CrashReport> read(const QString &path);
    static std::optional<CrashReport> parse(const QByteArray &text);
    // The report as the analytics server's crash object: "_os", "_os_version", "_device", "_app_version",
    // "_name", "_error", "_nonfatal", "_logs", "_run" (and the revision under "_custom").
    static QByteArray toCrashJson(const CrashReport &report);

private:
    QString m_folder;
};
