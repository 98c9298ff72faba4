// SPDX-License-Identifier: MIT
// Live-stream throughput: lines per second that LogReader hands its delegate from a flooding simulated
// device through the real adb server, next to `adb logcat -v threadtime` on the same device (the
// ceiling). Rounds alternate between the two so machine load hits both alike.
//
// Usage: adb_stream_bench [--seconds S] [--rounds N]
#include "Android/LogReader.h"
#include "Helpers/Settings.h"

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

struct Rig
{
    QString adb;
    quint16 port = 0;
    QProcessEnvironment env;
    QString serial;
    std::unique_ptr<QProcess> device;

    QByteArray run(const QStringList &args, int timeoutMs = 15000) const
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.setStandardInputFile(QProcess::nullDevice());
        p.start(adb, QStringList{QStringLiteral("-P"), QString::number(port)} + args);
        p.waitForFinished(timeoutMs);
        return p.readAllStandardOutput() + p.readAllStandardError();
    }
};

bool waitFor(const std::function<bool()> &predicate, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!predicate()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    return true;
}

bool setUp(Rig &rig, const QString &home)
{
    rig.adb = QStandardPaths::findExecutable(QStringLiteral("adb"));
    if (rig.adb.isEmpty()) {
        out << "adb not found" << Qt::endl;
        return false;
    }
    rig.env = QProcessEnvironment::systemEnvironment();
    rig.env.insert(QStringLiteral("HOME"), home);
    rig.env.insert(QStringLiteral("TMPDIR"), home);
    rig.env.remove(QStringLiteral("ANDROID_SERIAL"));
    for (quint16 port = quint16(16037 + ::getpid() % 1000); port < 17500; ++port) {
        QTcpServer probe;
        if (probe.listen(QHostAddress::LocalHost, port)) {
            rig.port = port;
            break;
        }
    }
    QProcess starter;
    starter.setProcessEnvironment(rig.env);
    starter.setStandardOutputFile(home + QStringLiteral("/start-server.txt"));
    starter.setStandardErrorFile(home + QStringLiteral("/start-server.txt"), QIODevice::Append);
    starter.start(rig.adb, {QStringLiteral("-P"), QString::number(rig.port), QStringLiteral("start-server")});
    if (!starter.waitForFinished(30000) || starter.exitCode() != 0) {
        out << "adb start-server failed" << Qt::endl;
        return false;
    }

    rig.device = std::make_unique<QProcess>();
    rig.device->setProcessEnvironment(rig.env);
    rig.device->setStandardErrorFile(home + QStringLiteral("/devsim.log"));
    rig.device->start(QStringLiteral(QF_TOOLS_DIR "/quillfern-devsim"),
                      {QStringLiteral("--rate"), QStringLiteral("0"), QStringLiteral("--buffer"), QStringLiteral("0"),
                       QStringLiteral("--seed"), QStringLiteral("11"), QStringLiteral("--adb-port"),
                       QString::number(rig.port), QStringLiteral("--adb"), rig.adb, QStringLiteral("--connect")});
    QByteArray line;
    if (!waitFor(
            [&] {
                rig.device->waitForReadyRead(50);
                line += rig.device->readAllStandardOutput();
                return line.contains('\n');
            },
            10000)) {
        out << "the simulator did not start" << Qt::endl;
        return false;
    }
    rig.serial = QStringLiteral("127.0.0.1:") + QString::fromLatin1(line.trimmed().mid(13));
    if (!waitFor([&] { return rig.run({QStringLiteral("devices")}).contains(rig.serial.toUtf8() + "\tdevice"); },
                 20000)) {
        out << "the simulator did not register" << Qt::endl;
        return false;
    }
    return true;
}

// `adb logcat` with its output read and counted: the best a client of the server can do.
double adbRate(const Rig &rig, double seconds)
{
    QProcess logcat;
    logcat.setProcessEnvironment(rig.env);
    logcat.setStandardInputFile(QProcess::nullDevice());
    logcat.start(rig.adb, {QStringLiteral("-P"), QString::number(rig.port), QStringLiteral("-s"), rig.serial,
                           QStringLiteral("logcat"), QStringLiteral("-v"), QStringLiteral("threadtime")});
    logcat.waitForStarted();
    // Count from the first byte, as the LogReader side counts from its first line.
    logcat.waitForReadyRead(10000);
    QElapsedTimer clock;
    clock.start();
    // Read into one reused buffer: a fresh array per read would be allocated, page-faulted and
    // returned to the system each time, a cost of this tool and not of adb.
    QByteArray chunk(1 << 20, Qt::Uninitialized);
    auto drain = [&logcat, &chunk] {
        qint64 n = 0;
        for (qint64 got; (got = logcat.read(chunk.data(), chunk.size())) > 0;)
            n += QByteArrayView(chunk.constData(), got).count('\n');
        return n;
    };
    qint64 lines = drain();
    const auto budget = qint64(seconds * 1000);
    while (clock.elapsed() < budget) {
        logcat.waitForReadyRead(int(std::max<qint64>(1, budget - clock.elapsed())));
        lines += drain();
    }
    const double elapsed = double(clock.nsecsElapsed()) / 1e9;
    logcat.kill();
    logcat.waitForFinished();
    return double(lines) / elapsed;
}

class CountingDelegate : public LogReaderDelegate
{
public:
    void logLineReceived(const std::optional<QString> &line) override
    {
        if (lines.fetch_add(1, std::memory_order_relaxed) == 0)
            clock.start();
        bytes += line ? line->size() : 0;
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
    // Settings and the diagnostic log must not touch the user's own folders.
    QTemporaryDir dir;
    qputenv("XDG_CONFIG_HOME", (dir.path() + "/config").toUtf8());
    qputenv("XDG_DATA_HOME", (dir.path() + "/data").toUtf8());
    qputenv("XDG_CACHE_HOME", (dir.path() + "/cache").toUtf8());
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
    if (!setUp(rig, dir.path() + QStringLiteral("/home"))) {
        rig.run({QStringLiteral("kill-server")});
        return 1;
    }
    Settings::setValue(SettingsKey::adbServer, QStringLiteral("127.0.0.1"));
    Settings::setValue(SettingsKey::adbPort, QString::number(rig.port));

    out << "device " << rig.serial << " flooding through adb server port " << rig.port << ", " << rounds
        << " rounds of " << seconds << " s each" << Qt::endl;
    double bestAdb = 0, bestReader = 0;
    QList<double> adbRates, readerRates;
    for (int round = 1; round <= rounds; ++round) {
        const double adb = adbRate(rig, seconds);
        const double reader = logReaderRate(rig, seconds);
        out << QStringLiteral("round %1: adb logcat %2 lines/s, LogReader %3 lines/s, ratio %4")
                   .arg(round)
                   .arg(adb, 0, 'f', 0)
                   .arg(reader, 0, 'f', 0)
                   .arg(adb > 0 ? reader / adb : 0, 0, 'f', 2)
            << Qt::endl;
        adbRates.append(adb);
        readerRates.append(reader);
        bestAdb = std::max(bestAdb, adb);
        bestReader = std::max(bestReader, reader);
    }
    out << QStringLiteral("best: adb logcat %1 lines/s, LogReader %2 lines/s, ratio %3 (goal >= 0.9)")
               .arg(bestAdb, 0, 'f', 0)
               .arg(bestReader, 0, 'f', 0)
               .arg(bestAdb > 0 ? bestReader / bestAdb : 0, 0, 'f', 2)
        << Qt::endl;

    // The median resists a busy machine better than the best round does.
    auto median = [](QList<double> values) {
        std::sort(values.begin(), values.end());
        return values.isEmpty() ? 0.0 : values.at(values.size() / 2);
    };
    const double midAdb = median(adbRates), midReader = median(readerRates);
    out << QStringLiteral("median: adb logcat %1 lines/s, LogReader %2 lines/s, ratio %3")
               .arg(midAdb, 0, 'f', 0)
               .arg(midReader, 0, 'f', 0)
               .arg(midAdb > 0 ? midReader / midAdb : 0, 0, 'f', 2)
        << Qt::endl;

    rig.device->terminate();
    rig.device->waitForFinished(5000);
    rig.run({QStringLiteral("kill-server")});
    return 0;
}
