// SPDX-License-Identifier: MIT
// Live-stream throughput: lines per second that LogReader hands its delegate from a flooding simulated
// device through the real adb server, next to `adb logcat -v threadtime` on the same device (the
// ceiling). Rounds alternate between the two so machine load hits both alike.
//
// Usage: adb_stream_bench [--seconds S] [--rounds N]
#include "Android/LogReader.h"
#include "Helpers/Settings.h"
#include "support/AdbFloodRig.h"
#include "support/BenchEnv.h"
#include "support/RoundReport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {
QTextStream out(stdout);

using bench::Rig;
using bench::adbRate;

// Counts what the reader hands over in bulk, as the datasource takes it: the reader's own cost, not
// that of making a QString of every line.
class CountingDelegate : public LogReaderDelegate
{
public:
    void logLineReceived(const std::optional<QString> &) override {}
    void logLinesDataReceived(QByteArrayView run) override
    {
        if (lines.load(std::memory_order_relaxed) == 0)
            clock.start();
        lines.fetch_add(run.count('\n'), std::memory_order_relaxed);
        bytes += run.size();
    }
    void logReaderStopped() override { stopped = true; }
    void logReaderStoppedWithError(const AdbError &) override { failed = true; }
    void adbNotRunningError(const AdbError &) override { failed = true; }
    void adbDeviceNotFound(const AdbError &) override { failed = true; }

    std::atomic<qint64> lines{0};
    qint64 bytes = 0;
    QElapsedTimer clock;
    bool stopped = false;
    bool failed = false;
};

// LogReader on this thread's event loop, as the datasource runs it on its worker.
double logReaderRate(const Rig &rig, double seconds)
{
    CountingDelegate delegate;
    auto reader = std::make_unique<LogReader>();
    reader->setDeviceId(rig.serial);
    reader->setConnectionSettings(rig.connectionSettings());
    reader->setDelegate(&delegate);
    reader->connect();
    QEventLoop loop;
    qint64 linesAtEnd = 0;
    double elapsed = 0;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (delegate.failed || delegate.stopped) {
            loop.quit();
            return;
        }
        if (delegate.lines > 0 && delegate.clock.elapsed() >= qint64(seconds * 1000)) {
            linesAtEnd = delegate.lines;
            elapsed = double(delegate.clock.nsecsElapsed()) / 1e9;
            loop.quit();
        }
    });
    poll.start(5);
    loop.exec();
    reader->setDelegate(nullptr);
    reader->stop();
    if (delegate.failed || elapsed <= 0) {
        out << "LogReader failed or stopped early" << Qt::endl;
        return 0;
    }
    return double(linesAtEnd) / elapsed;
}
} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir dir;
    bench::isolateUserFolders(dir.path());
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Quillfern"));
    QCoreApplication::setApplicationName(QStringLiteral("QuillfernBench"));

    double seconds = 4;
    int rounds = 3;
    const QStringList args = app.arguments();
    for (qsizetype i = 1; i + 1 < args.size(); ++i) {
        if (args.at(i) == u"--seconds")
            seconds = args.at(i + 1).toDouble();
        else if (args.at(i) == u"--rounds")
            rounds = args.at(i + 1).toInt();
    }

    Rig rig;
    QDir(dir.path()).mkpath(QStringLiteral("home"));
    if (!bench::setUpRig(rig, dir.path() + QStringLiteral("/home"), 16037, out)) {
        rig.tearDown();
        return 1;
    }

    out << "device " << rig.serial << " flooding through adb server port " << rig.port << ", " << rounds
        << " rounds of " << seconds << " s each" << Qt::endl;
    double bestAdb = 0, bestReader = 0;
    QList<double> adbRates, readerRates;
    for (int round = 1; round <= rounds; ++round) {
        const double adb = adbRate(rig, seconds);
        const double reader = logReaderRate(rig, seconds);
        out << bench::roundLine(round, QStringLiteral("adb logcat"), adb, QStringLiteral("LogReader"), reader,
                                QStringLiteral("lines/s"), 0)
            << Qt::endl;
        adbRates.append(adb);
        readerRates.append(reader);
        bestAdb = std::max(bestAdb, adb);
        bestReader = std::max(bestReader, reader);
    }
    out << QStringLiteral("best: adb logcat %1 lines/s, LogReader %2 lines/s, ratio %3 (goal >= 0.9)")
               .arg(bestAdb, 0, 'f', 0)
               .arg(bestReader, 0, 'f', 0)
               .arg(bench::ratio(bestReader, bestAdb), 0, 'f', 2)
        << Qt::endl;

    // The median resists a busy machine better than the best round does.
    const double midAdb = bench::median(adbRates), midReader = bench::median(readerRates);
    out << QStringLiteral("median: adb logcat %1 lines/s, LogReader %2 lines/s, ratio %3")
               .arg(midAdb, 0, 'f', 0)
               .arg(midReader, 0, 'f', 0)
               .arg(bench::ratio(midReader, midAdb), 0, 'f', 2)
        << Qt::endl;

    rig.tearDown();
    return 0;
}
