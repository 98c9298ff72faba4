// SPDX-License-Identifier: MIT
// The live line path of LogDatasource: logLineReceived with a filter set (parse, duplicate check, both
// buffers, filter, throttle), fed directly from the benchmark thread. Goal: at least 1,000,000 lines/s.
// The LinesData cases feed what the log reader actually calls under a flood: runs of whole lines
// (logLinesDataReceived), parsed on two threads.
//
// With --adb it then also floods a simulated device through the real adb server and compares the lines
// per second the datasource takes in with `adb logcat -v threadtime` on the same device (goal ratio >= 0.9).
//
// Usage: live_path_bench [benchmark flags] [--adb] [--seconds S] [--rounds N]
#include "Helpers/Settings.h"
#include "support/AdbFloodRig.h"
#include "support/BenchEnv.h"
#include "support/RoundReport.h"
#include "Session/LogDatasource.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHostAddress>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <random>
#include <unistd.h>

namespace {

// ---------------------------------------------------------------------------------------------
// Seeded threadtime lines: varied pids, tags and levels, some long, JSON and non-ASCII messages.

struct Process
{
    int pid;
    QString name;
};

const QList<Process> &processes()
{
    static const QList<Process> list = [] {
        const char *names[] = {"system_server", "com.android.systemui", "com.google.android.gms", "com.example.shop",
                               "com.example.maps", "surfaceflinger", "media.codec", "com.android.phone",
                               "com.whatsapp", "com.spotify.music", "logd", "netd"};
        QList<Process> out;
        int pid = 512;
        for (const char *name : names) {
            out.append({pid, QString::fromLatin1(name)});
            pid += 97;
        }
        return out;
    }();
    return list;
}

QStringList generateLines(int count, quint64 seed)
{
    std::mt19937_64 rng(seed);
    const char *tags[] = {"ActivityManager", "chatty", "OkHttp", "Choreographer", "NetworkController", "ShopApi",
                          "GoogleApiManager", "AudioTrack", "WindowManager", "libc", "RenderThread", "MapTiles"};
    const char levels[] = {'V', 'D', 'D', 'D', 'I', 'I', 'I', 'W', 'W', 'E', 'F'};
    const QString longText = QStringLiteral("Slow operation: ") + QString(240, u'x');
    QStringList out;
    out.reserve(count);
    qint64 ms = 10LL * 3600 * 1000;
    for (int i = 0; i < count; ++i) {
        ms += qint64(rng() % 4);
        const Process &p = processes()[qsizetype(rng() % quint64(processes().size()))];
        const int tid = p.pid + int(rng() % 6);
        const char level = levels[rng() % sizeof(levels)];
        const char *tag = tags[rng() % std::size(tags)];
        QString text;
        switch (rng() % 10) {
        case 0:
            text = QStringLiteral("{\"id\":%1,\"user\":\"anna\",\"items\":[1,2,3],\"ok\":true}").arg(i);
            break;
        case 1:
            text = longText;
            break;
        case 2:
            text = QStringLiteral("Grüße aus München – 東京 %1").arg(i);
            break;
        default:
            text = QStringLiteral("event %1 handled in %2 ms").arg(i).arg(rng() % 500);
            break;
        }
        const qint64 h = ms / 3600000, m = ms / 60000 % 60, s = ms / 1000 % 60, f = ms % 1000;
        out.append(QStringLiteral("01-23 %1:%2:%3.%4 %5 %6 %7 %8: %9\n")
                       .arg(h, 2, 10, QChar(u'0'))
                       .arg(m, 2, 10, QChar(u'0'))
                       .arg(s, 2, 10, QChar(u'0'))
                       .arg(f, 3, 10, QChar(u'0'))
                       .arg(p.pid, 5)
                       .arg(tid, 5)
                       .arg(QChar::fromLatin1(level))
                       .arg(QString::fromLatin1(tag).leftJustified(8))
                       .arg(text));
    }
    return out;
}

const QStringList &benchLines()
{
    static const QStringList lines = generateLines(1 << 16, 7);
    return lines;
}

QString psAnswer()
{
    QString out = QStringLiteral("USER           PID  PPID     VSZ    RSS WCHAN            ADDR S NAME\n");
    for (const Process &p : processes())
        out += QStringLiteral("u0_a12 %1 1 1000 200 0 0 S %2\n").arg(p.pid).arg(p.name);
    return out;
}

const char *JsonFilter =
    "(text CONTAINS[cd] '{' AND text CONTAINS[cd] ',' AND text CONTAINS[cd] '\"' AND text CONTAINS[cd] ':' AND "
    "text CONTAINS[cd] '}') OR (text CONTAINS[cd] '[' AND text CONTAINS[cd] ',' AND text CONTAINS[cd] '\"' AND "
    "text CONTAINS[cd] ']')";

constexpr const char *LevelFilter = "type IN[cd] 'W,E,F,A'";

const QList<QByteArray> &benchLinesUtf8()
{
    static const QList<QByteArray> lines = [] {
        QList<QByteArray> out;
        for (const QString &line : benchLines())
            out.append(line.toUtf8());
        return out;
    }();
    return lines;
}

void prepare(LogDatasource &ds, const char *filterText)
{
    LogDatasource::ReaderHooks hooks;
    hooks.startPidLookup = [](bool, const QString &) {};
    ds.setReaderHooks(hooks);
    ds.pidReceived(psAnswer()); // every pid named: no lookups on the path
    if (filterText) {
        ds.setLogDataFilter(Filter::parse(QString::fromLatin1(filterText)));
        QDeadlineTimer deadline(5000);
        while (ds.logDataFilter().isNull() && !deadline.hasExpired())
            QThread::msleep(1);
    }
}

void report(benchmark::State &state, const LogDatasource &ds, qint64 lines)
{
    state.SetItemsProcessed(lines);
    state.counters["held"] = double(ds.logEventCount());
    state.counters["shown"] = double(ds.getDataFiltered().size());
}

void liveLines(benchmark::State &state, const char *filterText)
{
    LogDatasource ds;
    prepare(ds, filterText);
    const QStringList &lines = benchLines();
    qsizetype i = 0;
    for (auto _ : state) {
        ds.logLineReceived(lines[i]);
        if (++i == lines.size())
            i = 0;
    }
    report(state, ds, qint64(state.iterations()));
}

// What the log reader hands over under a flood: runs of whole lines read in one go (128 KiB at most).
void liveLinesData(benchmark::State &state, const char *filterText)
{
    LogDatasource ds;
    prepare(ds, filterText);
    QList<QByteArray> chunks;
    QList<qint64> counts;
    QByteArray chunk;
    qint64 inChunk = 0;
    for (const QByteArray &line : benchLinesUtf8()) {
        if (chunk.size() + line.size() > 128 * 1024) {
            chunks.append(chunk);
            counts.append(inChunk);
            chunk.clear();
            inChunk = 0;
        }
        chunk.append(line);
        ++inChunk;
    }
    qint64 lineCount = 0;
    qsizetype i = 0;
    for (auto _ : state) {
        ds.logLinesDataReceived(chunks[i]);
        lineCount += counts[i];
        if (++i == chunks.size())
            i = 0;
    }
    report(state, ds, lineCount);
}

BENCHMARK_CAPTURE(liveLines, LevelFilter, LevelFilter)->MinTime(2.0);
BENCHMARK_CAPTURE(liveLines, JsonFilter, JsonFilter)->MinTime(2.0);
BENCHMARK_CAPTURE(liveLines, NoFilter, nullptr)->MinTime(2.0);
BENCHMARK_CAPTURE(liveLinesData, LevelFilter, LevelFilter)->MinTime(2.0);
BENCHMARK_CAPTURE(liveLinesData, JsonFilter, JsonFilter)->MinTime(2.0);
BENCHMARK_CAPTURE(liveLinesData, NoFilter, nullptr)->MinTime(2.0);

// ---------------------------------------------------------------------------------------------
// Through the real adb server from a flooding simulated device.

QTextStream out(stdout);

using bench::Rig;
using bench::adbRate;

// The whole datasource, as the application runs it: its own worker thread and reader, names from the
// device's process list, a level filter, notifications delivered on this (GUI) thread. Lines taken in
// are counted by the running "idx" of the newest entry.
double datasourceRate(const Rig &rig, double seconds, qint64 *notifications)
{
    LogDatasource ds;
    qint64 updates = 0;
    QObject::connect(&ds, &LogDatasource::logDataUpdated, &ds, [&] { ++updates; });
    ds.setLogDataFilter(Filter::parse(QString::fromLatin1(LevelFilter)));
    ds.setDeviceId(rig.serial);
    ds.setConnectionSettings(rig.connectionSettings());
    ds.startLogger();

    QEventLoop loop;
    QElapsedTimer clock;
    quint64 firstIdx = 0, lastIdx = 0;
    double elapsed = 0;
    // One snapshot per change notification, as the table takes them: a snapshot makes the worker's
    // next append copy the list, so polling faster than the application would tax the worker.
    QObject::connect(&ds, &LogDatasource::logDataUpdated, &loop, [&] {
        const QList<LogEntry> all = ds.getDataAll();
        if (all.isEmpty() || elapsed > 0)
            return;
        if (!clock.isValid()) {
            clock.start();
            firstIdx = all.last().idx();
            return;
        }
        if (clock.elapsed() >= qint64(seconds * 1000)) {
            lastIdx = all.last().idx();
            elapsed = double(clock.nsecsElapsed()) / 1e9;
            loop.quit();
        }
    });
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (!ds.isLogging())
            loop.quit();
    });
    poll.start(100);
    QDeadlineTimer deadline(qint64(seconds * 1000) + 20000);
    QTimer::singleShot(int(deadline.remainingTime()), &loop, &QEventLoop::quit);
    loop.exec();
    ds.stopLogger();
    *notifications = updates;
    if (elapsed <= 0) {
        out << "the datasource stopped early or received nothing" << Qt::endl;
        return 0;
    }
    return double(lastIdx - firstIdx) / elapsed;
}

int runAdbComparison(const QString &home, double seconds, int rounds)
{
    Rig rig;
    if (!bench::setUpRig(rig, home, 17537, out)) {
        rig.tearDown();
        return 1;
    }
    out << "device " << rig.serial << " flooding through adb server port " << rig.port << ", " << rounds
        << " rounds of " << seconds << " s each" << Qt::endl;
    double bestAdb = 0, bestDs = 0;
    QList<double> ratios;
    for (int round = 1; round <= rounds; ++round) {
        const double adb = adbRate(rig, seconds);
        qint64 notifications = 0;
        const double ds = datasourceRate(rig, seconds, &notifications);
        out << bench::roundLine(round, QStringLiteral("adb logcat"), adb, QStringLiteral("LogDatasource"), ds,
                                QStringLiteral("lines/s"), 0)
            << QStringLiteral(", %1 notifications in %2 s").arg(notifications).arg(seconds) << Qt::endl;
        bestAdb = std::max(bestAdb, adb);
        bestDs = std::max(bestDs, ds);
        ratios.append(bench::ratio(ds, adb));
    }
    out << QStringLiteral("best: adb logcat %1 lines/s, LogDatasource %2 lines/s, ratio %3; median ratio of the "
                          "rounds %4 (goal >= 0.9)")
               .arg(bestAdb, 0, 'f', 0)
               .arg(bestDs, 0, 'f', 0)
               .arg(bench::ratio(bestDs, bestAdb), 0, 'f', 2)
               .arg(bench::median(ratios), 0, 'f', 2)
        << Qt::endl;
    rig.tearDown();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir dir;
    bench::isolateUserFolders(dir.path());

    // Our own flags first; the rest is Google Benchmark's.
    bool adb = false;
    double seconds = 4;
    int rounds = 3;
    std::vector<char *> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg == "--adb")
            adb = true;
        else if (arg == "--seconds" && i + 1 < argc)
            seconds = QByteArray(argv[++i]).toDouble();
        else if (arg == "--rounds" && i + 1 < argc)
            rounds = QByteArray(argv[++i]).toInt();
        else
            rest.push_back(argv[i]);
    }
    int restCount = int(rest.size());
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Quillfern"));
    QCoreApplication::setApplicationName(QStringLiteral("QuillfernBench"));

    benchmark::Initialize(&restCount, rest.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    if (!adb)
        return 0;
    QDir(dir.path()).mkpath(QStringLiteral("home"));
    return runAdbComparison(dir.path() + QStringLiteral("/home"), seconds, rounds);
}
