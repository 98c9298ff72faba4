// SPDX-License-Identifier: MIT
// Opens a generated 1,000,000-line threadtime file the way the Open command does (readTextFile into
// the full-log buffer, first and last rows formatted) and reports wall time and peak resident memory,
// side by side with `wc -l` and `grep -c` on the same file (the I/O floor).
//
// usage: open_file_bench [FILE]   (default: generates /tmp/quillfern-bench-1m.log with quillfern-loggen)
#include "Log/BoundedBuffer.h"
#include "Log/LogDocument.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <sys/resource.h>

#include <cstdio>

namespace {

double runTimed(const QString &program, const QStringList &args, QByteArray *out)
{
    QElapsedTimer timer;
    timer.start();
    QProcess p;
    p.start(program, args);
    p.waitForFinished(-1);
    *out = p.readAllStandardOutput().trimmed();
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QString path = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("/tmp/quillfern-bench-1m.log");
    if (!QFileInfo::exists(path)) {
        QByteArray ignored;
        const QString loggen = QStringLiteral(QF_TOOLS_DIR "/quillfern-loggen");
        std::printf("generating %s with %s\n", qPrintable(path), qPrintable(loggen));
        runTimed(loggen, {"--lines", "1000000", "--seed", "1", path}, &ignored);
    }
    const qint64 fileSize = QFileInfo(path).size();
    if (fileSize <= 0) {
        std::fprintf(stderr, "open_file_bench: no file %s\n", qPrintable(path));
        return 1;
    }
    QByteArray wcOut;
    QByteArray grepOut;
    const double wcMs = runTimed(QStringLiteral("wc"), {"-l", path}, &wcOut);
    const double grepMs = runTimed(QStringLiteral("grep"), {"-c", " E ", path}, &grepOut);

    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    QElapsedTimer timer;
    timer.start();
    LogIndexCounter counter;
    LogFileResult result = LogDocument::readTextFile(path, counter);
    BoundedBuffer logData(0);
    logData.addAllObjects(result.entries);
    result.entries.clear();
    const QList<LogEntry> snapshot = logData.dataArray();
    QString shown;
    if (!snapshot.isEmpty()) {
        for (int f = 0; f < LogEntry::FieldCount; ++f) {
            snapshot.first().appendValue(LogEntry::Field(f), shown);
            snapshot.last().appendValue(LogEntry::Field(f), shown);
        }
    }
    const double openMs = double(timer.nsecsElapsed()) / 1e6;
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const double fileMiB = double(fileSize) / 1048576.0;
    const double peakMiB = double(after.ru_maxrss) / 1024.0;
    std::printf("file: %s, %.1f MiB, %lld entries, format %d, ok %d\n", qPrintable(path), fileMiB,
                static_cast<long long>(snapshot.size()), result.format, int(result.ok));
    std::printf("wc -l:       %8.1f ms  (%s)\n", wcMs, wcOut.constData());
    std::printf("grep -c:     %8.1f ms  (%s)\n", grepMs, grepOut.constData());
    std::printf("readTextFile %8.1f ms  goal <= 500 ms\n", openMs);
    std::printf("peak RSS     %8.1f MiB = %.2f x file  goal <= 1.50 x (process baseline before open %.1f MiB)\n",
                peakMiB, peakMiB / fileMiB, double(before.ru_maxrss) / 1024.0);
    std::printf("cpu user %.0f ms, sys %.0f ms\n",
                double(after.ru_utime.tv_sec - before.ru_utime.tv_sec) * 1e3 +
                    double(after.ru_utime.tv_usec - before.ru_utime.tv_usec) / 1e3,
                double(after.ru_stime.tv_sec - before.ru_stime.tv_sec) * 1e3 +
                    double(after.ru_stime.tv_usec - before.ru_stime.tv_usec) / 1e3);
    return result.ok ? 0 : 1;
}
