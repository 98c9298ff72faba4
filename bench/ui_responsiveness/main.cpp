// SPDX-License-Identifier: MIT
// Times the running main window:
//  1. flood: a simulated device floods its log through a private adb server into the window; a 10 ms
//     timer on the GUI thread measures how late the event loop runs, and the table reloads are counted;
//  2. file: a 1,000,000-line log file is opened as from the command line; time until its last row is
//     shown, then frames per second while scrolling page by page.
// Run under Xvfb (DISPLAY set) for real painting; without a display it falls back to offscreen.
#include "Helpers/Settings.h"
#include "Session/LogDatasource.h"
#include "Presentation/LogTableModel.h"
#include "Session/ReconnectPolicy.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "Scenes/SelectableTableView.h"
#include "../support/BenchEnv.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QScrollBar>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

QTextStream out(stdout);

void waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done() || clock.elapsed() > timeoutMs)
            loop.quit();
    });
    poll.start(1);
    if (!done())
        loop.exec();
}

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t i = std::min(values.size() - 1, size_t(p / 100.0 * double(values.size())));
    return values[i];
}

// Lateness of a 10 ms repeating timer, in milliseconds, one sample per expiry.
class LatencyProbe
{
public:
    LatencyProbe()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            if (m_last >= 0)
                m_samples.push_back(std::max(0.0, double(now - m_last) / 1e6 - 10.0));
            m_last = now;
        });
    }
    void start()
    {
        m_samples.clear();
        m_last = -1;
        m_clock.start();
        m_timer.start(10);
    }
    void stop() { m_timer.stop(); }
    const std::vector<double> &samples() const { return m_samples; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = -1;
    std::vector<double> m_samples;
};

int runFlood(int seconds)
{
    const QString tools = QStringLiteral(QF_TOOLS_DIR);
    const quint16 adbPort = freePort();
    QProcess adb;
    adb.start(QStringLiteral("adb"), {QStringLiteral("-P"), QString::number(adbPort), QStringLiteral("start-server")});
    adb.waitForFinished(20000);
    Settings::setValue(SettingsKey::adbServer, QStringLiteral("127.0.0.1"));
    Settings::setValue(SettingsKey::adbPort, QString::number(adbPort));

    QProcess devsim;
    devsim.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    devsim.start(tools + QStringLiteral("/quillfern-devsim"),
                 {QStringLiteral("--adb-port"), QString::number(adbPort), QStringLiteral("--connect"),
                  QStringLiteral("--rate"), QStringLiteral("0"), QStringLiteral("--buffer"), QStringLiteral("2000")});
    if (!devsim.waitForStarted(5000)) {
        out << "flood: cannot start " << tools << "/quillfern-devsim" << Qt::endl;
        return 1;
    }
    // Wait until adb lists the device.
    QElapsedTimer wait;
    wait.start();
    bool online = false;
    while (!online && wait.elapsed() < 20000) {
        QProcess list;
        list.start(QStringLiteral("adb"), {QStringLiteral("-P"), QString::number(adbPort), QStringLiteral("devices")});
        list.waitForFinished(5000);
        online = list.readAllStandardOutput().contains("\tdevice");
        if (!online)
            waitFor([] { return false; }, 200);
    }

    int result = 0;
    {
        QuillfernAppDelegate app;
        app.applicationDidFinishLaunching();
        int updates = 0;
        int resets = 0;
        int inserts = 0;
        QObject::connect(app.logDatasource(), &LogDatasource::logDataUpdated, [&] { ++updates; });
        LogTableModel *model = app.tableController()->model();
        QObject::connect(model, &QAbstractItemModel::modelReset, [&] { ++resets; });
        QObject::connect(model, &QAbstractItemModel::rowsInserted, [&] { ++inserts; });
        waitFor([&] { return app.logDatasource()->isLogging() && model->rowCount() > 100; }, 20000);
        if (!app.logDatasource()->isLogging()) {
            out << "flood: the window did not start streaming" << Qt::endl;
            result = 1;
        } else {
            updates = resets = inserts = 0;
            const quint64 countBefore = app.logDatasource()->logEventCount();
            LatencyProbe probe;
            probe.start();
            QElapsedTimer clock;
            clock.start();
            // Lines arrive far faster than the buffer holds: count what passed through the parser.
            quint64 lastIdx = model->rowCount() ? model->rows().back().idx() : 0;
            const quint64 firstIdx = lastIdx;
            waitFor([&] {
                if (model->rowCount())
                    lastIdx = model->rows().back().idx();
                return clock.elapsed() >= seconds * 1000;
            }, seconds * 1000 + 1000);
            probe.stop();
            const double elapsed = double(clock.elapsed()) / 1000.0;
            const auto &s = probe.samples();
            out << QStringLiteral("flood: %1 s, %2 lines received (%3 lines/s), log size %4 -> %5\n")
                       .arg(elapsed, 0, 'f', 1)
                       .arg(lastIdx - firstIdx)
                       .arg(double(lastIdx - firstIdx) / elapsed, 0, 'f', 0)
                       .arg(countBefore)
                       .arg(app.logDatasource()->logEventCount());
            out << QStringLiteral("flood: event-loop lateness over %1 ticks: p50 %2 ms, p99 %3 ms, max %4 ms "
                                  "(goal p99 < 50 ms)\n")
                       .arg(s.size())
                       .arg(percentile(s, 50), 0, 'f', 2)
                       .arg(percentile(s, 99), 0, 'f', 2)
                       .arg(s.empty() ? 0.0 : *std::max_element(s.begin(), s.end()), 0, 'f', 2);
            out << QStringLiteral("flood: %1 change notifications = %2 reloads/s (goal <= ~4/s); model: %3 resets, "
                                  "%4 batched inserts\n")
                       .arg(updates)
                       .arg(double(updates) / elapsed, 0, 'f', 2)
                       .arg(resets)
                       .arg(inserts);
            out.flush();
            if (percentile(s, 99) >= 50.0 || double(updates) / elapsed > 4.5)
                result = 2;
        }
        app.stopLogging();
    }
    devsim.terminate();
    devsim.waitForFinished(5000);
    QProcess kill;
    kill.start(QStringLiteral("adb"), {QStringLiteral("-P"), QString::number(adbPort), QStringLiteral("kill-server")});
    kill.waitForFinished(10000);
    return result;
}

QString writeLogFile(const QString &dir, int lines)
{
    const QString path = dir + QStringLiteral("/million.log");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    static const char *const levels = "VDIWEF";
    static const char *const tags[] = {"ActivityManager", "WindowManager", "chatty", "OkHttp", "MainActivity",
                                       "SurfaceFlinger"};
    QByteArray chunk;
    chunk.reserve(8 << 20);
    for (int i = 0; i < lines; ++i) {
        char line[256];
        const int ms = i * 7;
        const int n = std::snprintf(line, sizeof line,
                                    "01-23 %02d:%02d:%02d.%03d  %5d  %5d %c %s: message number %d with some payload "
                                    "text to make it realistic\n",
                                    (ms / 3600000) % 24, (ms / 60000) % 60, (ms / 1000) % 60, ms % 1000,
                                    1000 + i % 50, 1000 + i % 300, levels[i % 6], tags[i % 6], i);
        chunk.append(line, n);
        if (chunk.size() > (7 << 20)) {
            file.write(chunk);
            chunk.clear();
        }
    }
    file.write(chunk);
    return path;
}

int runFile(int lines)
{
    QTemporaryDir dir;
    const QString path = writeLogFile(dir.path(), lines);
    if (path.isEmpty()) {
        out << "file: cannot write the log file" << Qt::endl;
        return 1;
    }
    // Point at nothing, so the window does not start streaming from some device meanwhile.
    Settings::setValue(SettingsKey::adbPort, QString::number(freePort()));
    int result = 0;
    QuillfernAppDelegate::Options options;
    options.startAdb = [](std::function<void(bool)> done) { done(false); };
    QuillfernAppDelegate app(std::move(options));
    app.applicationDidFinishLaunching();
    SelectableTableView *table = app.window()->logTable();
    LogTableModel *model = app.tableController()->model();
    // Dismiss the "ADB not running" alert the start-up produces here.
    waitFor([] { return false; }, 300);
    if (QWidget *modal = QApplication::activeModalWidget())
        modal->close();

    QElapsedTimer clock;
    clock.start();
    app.openFile(path); // as main() does for a file named on the command line
    waitFor([&] {
        return model->rowCount() == lines && table->lastVisibleRow() == lines - 1;
    }, 60000);
    const qint64 shownMs = clock.elapsed();
    const bool shown = model->rowCount() == lines && table->lastVisibleRow() == lines - 1;
    out << QStringLiteral("file: %1 lines, last row shown after %2 ms (goal < 2000 ms)%3\n")
               .arg(lines)
               .arg(shownMs)
               .arg(shown ? QString() : QStringLiteral(" -- NOT SHOWN, rows %1").arg(model->rowCount()));

    // Scroll page by page from the top, painting every frame.
    QScrollBar *bar = table->verticalScrollBar();
    bar->setValue(0);
    table->viewport()->repaint();
    const int frames = 300;
    clock.restart();
    for (int i = 0; i < frames; ++i) {
        bar->setValue(bar->value() + bar->pageStep());
        table->viewport()->repaint();
        QApplication::sendPostedEvents();
    }
    QApplication::sync();
    const double fps = frames / (double(clock.nsecsElapsed()) / 1e9);
    out << QStringLiteral("file: scrolling %1 pages: %2 frames/s (goal >= 30)\n").arg(frames).arg(fps, 0, 'f', 1);
    out.flush();
    if (!shown || shownMs > 2000 || fps < 30)
        result = 2;
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    bench::isolateUserFolders(home.path());
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication qapp(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quillfern"));
    QApplication::setApplicationName(QStringLiteral("QuillfernBench"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Responsiveness of the Quillfern main window."));
    parser.addHelpOption();
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("Flood duration."), QStringLiteral("s"),
                                     QStringLiteral("10"));
    const QCommandLineOption lines(QStringLiteral("lines"), QStringLiteral("Lines of the file."), QStringLiteral("n"),
                                   QStringLiteral("1000000"));
    const QCommandLineOption noFlood(QStringLiteral("no-flood"), QStringLiteral("Skip the flood."));
    const QCommandLineOption noFile(QStringLiteral("no-file"), QStringLiteral("Skip the file."));
    parser.addOptions({seconds, lines, noFlood, noFile});
    parser.process(qapp);

    out << "platform: " << QApplication::platformName() << Qt::endl;
    int result = 0;
    if (!parser.isSet(noFlood))
        result = std::max(result, runFlood(parser.value(seconds).toInt()));
    if (!parser.isSet(noFile))
        result = std::max(result, runFile(parser.value(lines).toInt()));
    return result;
}
