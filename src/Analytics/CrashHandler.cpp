// SPDX-License-Identifier: MIT
#include "Analytics/CrashHandler.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int FatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr size_t PathCapacity = 4096;
constexpr off_t LogTailBytes = 8192;

// Everything the handler reads, filled by install().
char g_reportPath[PathCapacity];
char g_logPath[PathCapacity];
char g_header[1024]; // "version: ...\nrevision: ...\n"
timespec g_start;
// Room for the handler when the fault is a stack overflow.
alignas(16) char g_altStack[64 * 1024];
volatile sig_atomic_t g_handling = 0;

void writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        data += written;
        size -= size_t(written);
    }
}

void writeText(int fd, const char *text)
{
    writeAll(fd, text, strlen(text));
}

void writeNumber(int fd, long long value)
{
    char digits[24];
    size_t at = sizeof digits;
    const bool negative = value < 0;
    unsigned long long rest = negative ? 0ULL - (unsigned long long)value : (unsigned long long)value;
    do {
        digits[--at] = char('0' + rest % 10);
        rest /= 10;
    } while (rest > 0);
    if (negative)
        digits[--at] = '-';
    writeAll(fd, digits + at, sizeof digits - at);
}

const char *signalName(int sig)
{
    switch (sig) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGFPE:
        return "SIGFPE";
    case SIGILL:
        return "SIGILL";
    case SIGABRT:
        return "SIGABRT";
    default:
        return "signal";
    }
}

void copyLogTail(int fd)
{
    const int log = ::open(g_logPath, O_RDONLY | O_CLOEXEC);
    if (log < 0)
        return;
    const off_t size = ::lseek(log, 0, SEEK_END);
    const off_t from = size > LogTailBytes ? size - LogTailBytes : 0;
    if (size > 0 && ::lseek(log, from, SEEK_SET) >= 0) {
        // Whole lines only: a tail that starts mid-file skips to the first line end.
        bool skipping = from > 0;
        char buffer[4096];
        ssize_t got;
        while ((got = ::read(log, buffer, sizeof buffer)) > 0) {
            const char *start = buffer;
            if (skipping) {
                const void *lineEnd = memchr(buffer, '\n', size_t(got));
                if (!lineEnd)
                    continue;
                start = static_cast<const char *>(lineEnd) + 1;
                skipping = false;
            }
            writeAll(fd, start, size_t(buffer + got - start));
        }
    }
    ::close(log);
}

void onFatalSignal(int sig)
{
    if (!g_handling) {
        g_handling = 1;
        const int fd = ::open(g_reportPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd >= 0) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            writeText(fd, "signal: ");
            writeNumber(fd, sig);
            writeText(fd, " ");
            writeText(fd, signalName(sig));
            writeText(fd, "\n");
            writeText(fd, g_header);
            writeText(fd, "time: ");
            writeNumber(fd, (long long)::time(nullptr));
            writeText(fd, "\nrun: ");
            writeNumber(fd, (long long)(now.tv_sec - g_start.tv_sec));
            writeText(fd, "\nbacktrace:\n");
            void *frames[128];
            const int count = backtrace(frames, 128);
            backtrace_symbols_fd(frames, count, fd);
            writeText(fd, "log:\n");
            copyLogTail(fd);
            ::close(fd);
        }
    }
    // The default action again, at once: the process ends as it would have without us.
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

bool copyPath(char *target, const QString &path)
{
    const QByteArray bytes = QFile::encodeName(path);
    if (size_t(bytes.size()) >= PathCapacity)
        return false;
    memcpy(target, bytes.constData(), size_t(bytes.size()) + 1);
    return true;
}

} // namespace

bool CrashHandler::install(const QString &folder, const QString &logFile, const char *version, const char *revision)
{
    if (!QDir().mkpath(folder))
        return false;
    const QString report = QDir(folder).filePath(
        QStringLiteral("crash-%1-%2.txt").arg(QDateTime::currentSecsSinceEpoch()).arg(qint64(::getpid())));
    const QByteArray header = QByteArrayLiteral("version: ") + version + "\nrevision: " + revision + "\n";
    if (!copyPath(g_reportPath, report) || !copyPath(g_logPath, logFile) || size_t(header.size()) >= sizeof g_header)
        return false;
    memcpy(g_header, header.constData(), size_t(header.size()) + 1);
    clock_gettime(CLOCK_MONOTONIC, &g_start);

    // The first backtrace() loads the unwinder, which allocates: not in the handler.
    void *warmUp[4];
    backtrace(warmUp, 4);

    stack_t altStack{};
    altStack.ss_sp = g_altStack;
    altStack.ss_size = sizeof g_altStack;
    sigaltstack(&altStack, nullptr);

    struct sigaction action{};
    action.sa_handler = onFatalSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_ONSTACK | SA_RESETHAND;
    for (const int sig : FatalSignals)
        sigaction(sig, &action, nullptr);
    return true;
}
