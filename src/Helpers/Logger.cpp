// SPDX-License-Identifier: MIT
#include "Helpers/Logger.h"

#include <cstdio>

Logger &Logger::getInstance()
{
    static Logger instance;
    return instance;
}

void Logger::registerLogger() {}

void Logger::write(LogLevel, const char *file, const char *function, int line, const QString &message)
{
    std::fprintf(stderr, "%s:%s:%d: %s\n", file, function, line, message.toUtf8().constData());
}
