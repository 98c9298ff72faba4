// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QString>

#include <functional>
#include <memory>
#include <mutex>

// The diagnostic log: a rolling file in the application's data folder plus the coloured console.
// Every diagnostic line goes through QF_LOG / QF_LOG_ERROR so that file, function and line are recorded.
//
// Ordinary lines are queued to one logging thread; an error line is written (after every line queued
// before it) and flushed before QF_LOG_ERROR returns. Lines logged before registerLogger() go to the
// observer only, and errors also to stderr. QUILLFERN_LOG_QUIET (any value but "0") silences the console.
enum class LogLevel { Debug, Error };

// What the formatter needs of one line.
struct LogMessage
{
    int levelMask = 31; // every call site passes 31, so every line carries "V"
    int flag = 8;       // 8 debug, 1 error
    QDateTime timestamp;
    QString message;
    QString fileName; // source file without directory and extension
    QString function;
    QString threadID;
};

class Logger
{
public:
    static constexpr qint64 MaxFileSize = 524288;         // 512 KiB
    static constexpr qint64 RollingIntervalMs = 86400000; // 24 h
    static constexpr qsizetype DisplayLimit = 15000;      // characters logToString returns at most

    static Logger &getInstance();

    // Starts the file and console loggers; does nothing when already registered. Called once on the GUI
    // thread at launch: the calling thread's lines are marked "UI". folder overrides the log folder
    // (default: <AppLocalDataLocation>/logs).
    void registerLogger(const QString &folder = {});
    // The log file registerLogger() uses by default; the crash handler needs it before registration.
    static QString defaultLogFilePath();
    bool isRegistered() const;
    // The log file ("<folder>/Quillfern.log"); empty until registered.
    QString logFilePath() const;

    // Ordinary lines are queued; errors are written and flushed before this returns.
    void write(LogLevel level, const char *file, const char *function, int line, const QString &message);
    // Blocks until every line queued before the call is in the file.
    void flush();
    // Flushes and stops the loggers; registerLogger() may be called again afterwards (tests use another
    // folder each time). Also run at exit.
    void shutdown();

    // The current log file as text for display (see readLogText); registers the logger if needed.
    QString logToString();
    // "no log found!" when path does not exist; "ERROR reading file: <path>" (also logged as an error)
    // when it cannot be read as UTF-8; "<truncated>\n" + the last DisplayLimit characters when longer.
    static QString readLogText(const QString &path);

    // "%@ %@ [%@] %@:%@: %@": time, level letter, "UI" or the thread id, file, method, message.
    QString formatLogMessage(const LogMessage &message) const;
    static QString formatLogMessage(const LogMessage &message, const QString &mainThreadId);
    // "-[Sheet keyDown:]" -> "keyDown"; "-[Logger registerLogger]" -> "registerLogger"; "main" -> "main".
    static QString extractMethodName(const QString &function);
    // "MM-dd HH:mm:ss" in local time.
    static QString stringFromDate(const QDateTime &date);
    // "src/Helpers/Logger.cpp" -> "Logger".
    static QString fileNameOf(const char *path);
    // The calling thread's system id in decimal, as lines show it.
    static QString currentThreadId();
    // The id of the thread that registered the logger; empty before.
    QString mainThreadId() const;

    // Called synchronously on the caller's thread with every message (registered or not), for tests and
    // in-app consumers; pass an empty function to remove it.
    using Observer = std::function<void(LogLevel level, const QString &message)>;
    void setObserver(Observer observer);

    ~Logger();

private:
    Logger() = default;
    struct Backend;

    mutable std::mutex m_mutex;
    std::shared_ptr<Backend> m_backend;
    std::shared_ptr<const Observer> m_observer;
    QString m_mainThreadId;
};

#define QF_LOG(message) Logger::getInstance().write(LogLevel::Debug, __FILE__, __func__, __LINE__, (message))
#define QF_LOG_ERROR(message) Logger::getInstance().write(LogLevel::Error, __FILE__, __func__, __LINE__, (message))
