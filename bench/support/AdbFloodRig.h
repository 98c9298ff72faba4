// SPDX-License-Identifier: MIT
#pragma once
// The benchmarks' test bench for the live stream: a private adb server with one simulated device
// flooding its log, and `adb logcat` on that device as the ceiling a client of the server can reach.

#include "Android/AdbConnectionSettings.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <functional>
#include <memory>
#include <unistd.h>

namespace bench {

struct Rig
{
    QString adb;
    quint16 port = 0;
    QProcessEnvironment env;
    QString serial;
    std::unique_ptr<QProcess> device;

    // For the client under test: this server.
    AdbConnectionSettings connectionSettings() const
    {
        AdbConnectionSettings settings;
        settings.port = port;
        return settings;
    }

    // Stops the simulated device and the private server.
    void tearDown() const
    {
        if (device) {
            device->terminate();
            device->waitForFinished(5000);
        }
        run({QStringLiteral("kill-server")});
    }

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

inline bool waitFor(const std::function<bool()> &predicate, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!predicate()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    return true;
}

// Starts the server and the simulator (by default flooding its log; deviceOptions replace that) and
// points the client's settings at them.
inline bool setUpRig(Rig &rig, const QString &home, quint16 firstPort, QTextStream &out,
                     const QStringList &deviceOptions = {QStringLiteral("--rate"), QStringLiteral("0"),
                                                         QStringLiteral("--buffer"), QStringLiteral("0"),
                                                         QStringLiteral("--seed"), QStringLiteral("11")})
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
    for (quint16 port = quint16(firstPort + ::getpid() % 1000); port < firstPort + 1500; ++port) {
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
                      deviceOptions + QStringList{QStringLiteral("--adb-port"), QString::number(rig.port),
                                                  QStringLiteral("--adb"), rig.adb, QStringLiteral("--connect")});
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
inline double adbRate(const Rig &rig, double seconds)
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

} // namespace bench
