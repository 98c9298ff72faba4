// SPDX-License-Identifier: MIT
// The remote screen's speed against a simulated 1080 x 2400 device through the real adb server:
//  1. frames/s of DeviceScreenDatasource's auto refresh against a plain loop of
//     `adb -s SERIAL exec-out screencap -p > /dev/null`, alternated round by round (goal ratio >= 0.9);
//  2. the decode of one screenshot (on the datasource's decoding thread) and its smooth scaling into a
//     window-sized view as the view paints it (goal: under 16 ms on the GUI thread);
//  3. tap latency: TouchWriter::sendTouchForPoint until the line is in the device's input log
//     (goal <= 100 ms).
//
// Usage: remote_screen_bench [--seconds S] [--rounds N] [--taps N] [--screen-size WxH]
#include "Android/ScreencapReader.h"
#include "Android/TouchWriter.h"
#include "Session/DeviceScreenDatasource.h"
#include "support/AdbFloodRig.h"
#include "support/BenchEnv.h"
#include "support/RoundReport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QPainter>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <functional>

namespace {

using bench::Rig;

struct FrameCounter : DeviceScreenDatasourceDelegate
{
    void onScreenUpdate(const QString &, const QImage &screen) override
    {
        if (!screen.isNull())
            ++frames;
        last = screen;
    }
    void onScreenUpdateFailedWithError(const std::optional<AdbError> &, const QString &) override { ++failures; }
    int frames = 0;
    int failures = 0;
    QImage last;
};

void runEventLoopFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Runs the event loop until done() holds, asked every millisecond.
void runEventLoopUntil(const std::function<bool()> &done)
{
    QEventLoop wait;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &wait, [&] {
        if (done())
            wait.quit();
    });
    poll.start(1);
    wait.exec();
}

// Frames/s the datasource shows, counted from its first frame.
double datasourceRate(const Rig &rig, double seconds, QImage *sample)
{
    FrameCounter counter;
    DeviceScreenDatasource source;
    source.setConnectionSettings(rig.connectionSettings());
    source.setDeviceId(rig.serial);
    source.setDelegate(&counter);
    source.startMonitoring(true);
    runEventLoopUntil([&] { return counter.frames > 0 || counter.failures > 0; });
    const int first = counter.frames;
    QElapsedTimer clock;
    clock.start();
    runEventLoopFor(int(seconds * 1000));
    const int frames = counter.frames - first;
    const double elapsed = double(clock.nsecsElapsed()) / 1e9;
    source.stopMonitoring();
    if (sample)
        *sample = counter.last;
    return double(frames) / elapsed;
}

// Frames/s of `adb exec-out screencap -p > /dev/null`, one process after the other.
double execOutRate(const Rig &rig, double seconds)
{
    QElapsedTimer clock;
    clock.start();
    int frames = 0;
    while (clock.elapsed() < qint64(seconds * 1000)) {
        QProcess p;
        p.setProcessEnvironment(rig.env);
        p.setStandardInputFile(QProcess::nullDevice());
        p.setStandardOutputFile(QProcess::nullDevice());
        p.start(rig.adb, {QStringLiteral("-P"), QString::number(rig.port), QStringLiteral("-s"), rig.serial,
                          QStringLiteral("exec-out"), QStringLiteral("screencap"), QStringLiteral("-p")});
        if (p.waitForFinished(10000) && p.exitCode() == 0)
            ++frames;
    }
    return double(frames) / (double(clock.nsecsElapsed()) / 1e9);
}

} // namespace

int main(int argc, char **argv)
{
    QTextStream out(stdout);
    QTemporaryDir dir;
    bench::isolateUserFolders(dir.path());
    qputenv("QUILLFERN_LOG_QUIET", "1");
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Quillfern"));
    QCoreApplication::setApplicationName(QStringLiteral("QuillfernBench"));

    double seconds = 4;
    int rounds = 3;
    int taps = 20;
    QString screenSize = QStringLiteral("1080x2400");
    const QStringList args = app.arguments();
    for (qsizetype i = 1; i + 1 < args.size(); ++i) {
        if (args.at(i) == u"--seconds")
            seconds = args.at(i + 1).toDouble();
        else if (args.at(i) == u"--rounds")
            rounds = args.at(i + 1).toInt();
        else if (args.at(i) == u"--taps")
            taps = args.at(i + 1).toInt();
        else if (args.at(i) == u"--screen-size")
            screenSize = args.at(i + 1);
    }

    Rig rig;
    QDir(dir.path()).mkpath(QStringLiteral("home"));
    const QString inputLog = dir.path() + QStringLiteral("/input.log");
    if (!bench::setUpRig(rig, dir.path() + QStringLiteral("/home"), 18537, out,
                         {QStringLiteral("--rate"), QStringLiteral("1"), QStringLiteral("--screen-size"), screenSize,
                          QStringLiteral("--input-log"), inputLog})) {
        rig.tearDown();
        return 1;
    }
    out << "device " << rig.serial << " (" << screenSize << ") through adb server port " << rig.port << ", "
        << rounds << " rounds of " << seconds << " s each" << Qt::endl;

    // 1. Frame rate, alternated.
    QList<double> adbRates, sourceRates, ratios;
    QImage sample;
    for (int round = 1; round <= rounds; ++round) {
        const double adb = execOutRate(rig, seconds);
        const double source = datasourceRate(rig, seconds, &sample);
        out << bench::roundLine(round, QStringLiteral("adb exec-out screencap"), adb,
                                QStringLiteral("DeviceScreenDatasource"), source, QStringLiteral("frames/s"), 1)
            << Qt::endl;
        adbRates.append(adb);
        sourceRates.append(source);
        ratios.append(bench::ratio(source, adb));
    }
    const double midAdb = bench::median(adbRates), midSource = bench::median(sourceRates);
    // Rounds are paired, so the median of their ratios cancels most of the machine's drift.
    out << QStringLiteral("median: adb %1 frames/s, datasource %2 frames/s, ratio of medians %3, median ratio %4 "
                          "(goal >= 0.9)")
               .arg(midAdb, 0, 'f', 1)
               .arg(midSource, 0, 'f', 1)
               .arg(bench::ratio(midSource, midAdb), 0, 'f', 2)
               .arg(bench::median(ratios), 0, 'f', 2)
        << Qt::endl;

    // 2. Decode (reader thread) and scaled paint (GUI thread) of one screenshot.
    const QByteArray png = rig.run({QStringLiteral("-s"), rig.serial, QStringLiteral("exec-out"),
                                    QStringLiteral("screencap"), QStringLiteral("-p")});
    QList<double> decodeMs, paintMs;
    for (int i = 0; i < 15; ++i) {
        QElapsedTimer t;
        t.start();
        const QImage image = ScreencapReader::createImageFromData(png);
        decodeMs.append(double(t.nsecsElapsed()) / 1e6);
        // What ScreenImageView::paintEvent does in a 432 x 960 view.
        QImage target(432, 960, QImage::Format_RGB32);
        t.restart();
        QPainter painter(&target);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target.rect(), image);
        painter.end();
        paintMs.append(double(t.nsecsElapsed()) / 1e6);
    }
    out << QStringLiteral("decode of one %1 screenshot (%2 bytes, decoding thread): median %3 ms; scaled paint into "
                          "432x960 (GUI thread): median %4 ms (goal < 16 ms)")
               .arg(screenSize)
               .arg(png.size())
               .arg(bench::median(decodeMs), 0, 'f', 1)
               .arg(bench::median(paintMs), 0, 'f', 1)
        << Qt::endl;

    // 3. Tap latency.
    TouchWriter touch;
    touch.setConnectionSettings(rig.connectionSettings());
    touch.setDeviceId(rig.serial);
    QList<double> latencies;
    for (int i = 0; i < taps; ++i) {
        const qint64 before = QFileInfo(inputLog).size();
        QElapsedTimer t;
        t.start();
        touch.sendTouchForPoint(QPointF(100 + i, 200 + i));
        runEventLoopUntil([&] { return QFileInfo(inputLog).size() > before || t.elapsed() > 5000; });
        latencies.append(double(t.nsecsElapsed()) / 1e6);
    }
    std::sort(latencies.begin(), latencies.end());
    out << QStringLiteral("tap to input log: median %1 ms, worst %2 ms over %3 taps (goal <= 100 ms)")
               .arg(bench::median(latencies), 0, 'f', 1)
               .arg(latencies.isEmpty() ? 0 : latencies.last(), 0, 'f', 1)
               .arg(latencies.size())
        << Qt::endl;

    rig.tearDown();
    return 0;
}
