// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The diagnostic log: a rolling file in the application's data folder plus the console.
// Every diagnostic line goes through QF_LOG so that file, function and line are recorded.
enum class LogLevel { Debug, Error };

class Logger
{
public:
    static Logger &getInstance();

    // Configures the file and console sinks; call once on the GUI thread at launch.
    void registerLogger();

    // Ordinary lines are queued; errors are written before this returns.
    void write(LogLevel level, const char *file, const char *function, int line, const QString &message);

private:
    Logger() = default;
};

#define QF_LOG(message) Logger::getInstance().write(LogLevel::Debug, __FILE__, __func__, __LINE__, (message))
#define QF_LOG_ERROR(message) Logger::getInstance().write(LogLevel::Error, __FILE__, __func__, __LINE__, (message))
