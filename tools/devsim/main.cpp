// SPDX-License-Identifier: MIT
// quillfern-devsim: plays an Android device for a real adb server over TCP.
#include "AdbRegistrar.h"
#include "DeviceLog.h"
#include "DeviceServices.h"
#include "DeviceTransport.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTimer>

#include <csignal>
#include <unistd.h>

namespace {
int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] auto written = ::write(g_signalPipe[1], &byte, 1);
}

// SIGTERM and SIGINT end the event loop, so sockets close and the device leaves cleanly.
void quitOnSignals(QCoreApplication &app)
{
    if (::pipe(g_signalPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] { QCoreApplication::quit(); });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quillfern-devsim"));
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays an Android device for the adb server: listens on a TCP port and speaks the device side of "
        "the ADB transport. Register it with: adb connect 127.0.0.1:PORT (or pass --connect)."));
    parser.addHelpOption();
    const QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("TCP port; 0 picks a free one."),
                                        QStringLiteral("port"), QStringLiteral("0"));
    const QCommandLineOption adbPortOption(QStringLiteral("adb-port"), QStringLiteral("Port of the adb server."),
                                           QStringLiteral("port"), QStringLiteral("5037"));
    const QCommandLineOption adbOption(QStringLiteral("adb"), QStringLiteral("The adb tool."), QStringLiteral("path"),
                                       QStringLiteral("adb"));
    const QCommandLineOption connectOption(QStringLiteral("connect"),
                                           QStringLiteral("Register with the adb server (adb connect), and again "
                                                          "after coming back."));
    const QCommandLineOption modelOption(QStringLiteral("model"), QStringLiteral("ro.product.model."),
                                         QStringLiteral("text"), QStringLiteral("Pixel Sim"));
    const QCommandLineOption productOption(QStringLiteral("product"), QStringLiteral("ro.product.name."),
                                           QStringLiteral("text"), QStringLiteral("sim_phone"));
    const QCommandLineOption rateOption(QStringLiteral("rate"),
                                        QStringLiteral("Live log lines per second; 0 floods."),
                                        QStringLiteral("lines/s"), QStringLiteral("20"));
    const QCommandLineOption bufferOption(QStringLiteral("buffer"),
                                          QStringLiteral("Lines kept and replayed to a new logcat."),
                                          QStringLiteral("lines"), QStringLiteral("300"));
    const QCommandLineOption linesOption(QStringLiteral("lines"),
                                         QStringLiteral("Stop producing after this many live lines (the stream "
                                                        "stays open)."),
                                         QStringLiteral("lines"), QStringLiteral("-1"));
    const QCommandLineOption seedOption(QStringLiteral("seed"),
                                        QStringLiteral("Same lines every run, times from a fixed date (not 0)."),
                                        QStringLiteral("n"), QStringLiteral("0"));
    const QCommandLineOption oldOption(QStringLiteral("old-device"),
                                       QStringLiteral("'ps -A' answers \"bad pid '-A'\"; 'ps' lists all."));
    const QCommandLineOption crlfOption(QStringLiteral("crlf"),
                                        QStringLiteral("Shell output has every LF turned into CR LF."));
    const QCommandLineOption inputLogOption(QStringLiteral("input-log"),
                                            QStringLiteral("Append every 'input ...' command to this file."),
                                            QStringLiteral("file"));
    const QCommandLineOption screenOption(QStringLiteral("screen-size"),
                                          QStringLiteral("Pixels of the screenshots 'screencap -p' draws."),
                                          QStringLiteral("WxH"), QStringLiteral("1080x2400"));
    const QCommandLineOption dropOption(QStringLiteral("drop-after"),
                                        QStringLiteral("Cut the server's connection this many seconds after it "
                                                       "connected, and stop listening."),
                                        QStringLiteral("seconds"));
    const QCommandLineOption returnOption(QStringLiteral("return-after"),
                                          QStringLiteral("Listen again this many seconds after the drop."),
                                          QStringLiteral("seconds"));
    const QCommandLineOption cyclesOption(QStringLiteral("drop-cycles"),
                                          QStringLiteral("Drop and return this many times (with --drop-after)."),
                                          QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption sequenceOption(QStringLiteral("sequence"),
                                            QStringLiteral("Every message is \"seq N\", counting lines from 0."));
    const QCommandLineOption maxDataOption(QStringLiteral("max-data"),
                                           QStringLiteral("Largest message payload the device offers."),
                                           QStringLiteral("bytes"), QString::number(256 * 1024));
    parser.addOptions({portOption, adbPortOption, adbOption, connectOption, modelOption, productOption, rateOption,
                       bufferOption, linesOption, seedOption, oldOption, crlfOption, inputLogOption, screenOption, dropOption,
                       returnOption, cyclesOption, sequenceOption, maxDataOption});
    parser.process(app);

    DeviceConfig config;
    config.model = parser.value(modelOption);
    config.product = parser.value(productOption);
    config.rate = parser.value(rateOption).toDouble();
    config.buffer = std::max(0, parser.value(bufferOption).toInt());
    config.lines = parser.value(linesOption).toLongLong();
    config.seed = parser.value(seedOption).toULongLong();
    config.oldDevice = parser.isSet(oldOption);
    config.crlf = parser.isSet(crlfOption);
    config.inputLog = parser.value(inputLogOption);
    config.sequence = parser.isSet(sequenceOption);
    config.dropCycles = std::max(1, parser.value(cyclesOption).toInt());
    config.screenSize = DeviceScreen::parseSize(parser.value(screenOption));
    if (!config.screenSize.isValid()) {
        err << "devsim: --screen-size wants WIDTHxHEIGHT" << Qt::endl;
        return 2;
    }
    config.maxData = std::clamp<uint32_t>(parser.value(maxDataOption).toUInt(), 4096, 1024 * 1024);
    const auto adbPort = quint16(parser.value(adbPortOption).toUInt());

    quitOnSignals(app);
    DeviceLog log(config);
    DeviceServices services(config, log);
    DeviceTransport transport(config, services);
    if (!transport.listen(quint16(parser.value(portOption).toUInt()))) {
        err << "devsim: cannot listen: " << transport.errorString() << Qt::endl;
        return 1;
    }
    QTextStream(stdout) << "listening on " << transport.port() << Qt::endl;

    AdbRegistrar registrar(parser.value(adbOption), adbPort);
    const bool registers = parser.isSet(connectOption);
    if (registers) {
        // A restarted device on a port the server still lists as offline gets "already connected".
        QObject::connect(&registrar, &AdbRegistrar::finished, &app, [&](const QString &output) {
            if (!output.contains(QLatin1String("already connected")) || transport.isOnline())
                return;
            QTimer::singleShot(1000, &app, [&] {
                if (!transport.isOnline())
                    registrar.reconnectDevice(transport.port());
            });
        });
        registrar.connectDevice(transport.port());
    }

    int drops = 0; // of --drop-after so far; outlives the event loop the timers run in
    if (parser.isSet(dropOption)) {
        const int dropMs = int(parser.value(dropOption).toDouble() * 1000);
        const int returnMs = parser.isSet(returnOption) ? int(parser.value(returnOption).toDouble() * 1000) : -1;
        auto *dropTimer = new QTimer(&app);
        dropTimer->setSingleShot(true);
        dropTimer->setInterval(dropMs);
        QObject::connect(&transport, &DeviceTransport::serverConnected, dropTimer, [dropTimer, &config, &drops] {
            if (drops < config.dropCycles && !dropTimer->isActive())
                dropTimer->start();
        });
        QObject::connect(dropTimer, &QTimer::timeout, &app, [&, returnMs] {
            ++drops;
            err << "devsim: dropping the connection" << Qt::endl;
            transport.unplug();
            if (returnMs < 0)
                return;
            QTimer::singleShot(returnMs, &app, [&] {
                if (!transport.listen(0)) {
                    err << "devsim: cannot listen again: " << transport.errorString() << Qt::endl;
                    return;
                }
                err << "devsim: back on port " << transport.port() << Qt::endl;
                // The server retries a dropped device by itself, but only every few seconds; when it
                // has not come back at once, forgetting and re-adding the address is quicker.
                if (registers)
                    QTimer::singleShot(300, &app, [&] {
                        if (!transport.isOnline())
                            registrar.reconnectDevice(transport.port());
                    });
            });
        });
    }

    return QCoreApplication::exec();
}
