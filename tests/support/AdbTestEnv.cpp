// SPDX-License-Identifier: MIT
#include "AdbTestEnv.h"

#include "Helpers/Settings.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTest>

#include <unistd.h>

namespace {
// Shuts the server down when the test program ends; added to GoogleTest before main runs,
// so any program that links this file gets it.
class AdbGlobalEnvironment : public ::testing::Environment
{
public:
    void TearDown() override { AdbTestEnv::instance().shutdown(); }
};

[[maybe_unused]] ::testing::Environment *const g_environment =
    ::testing::AddGlobalTestEnvironment(new AdbGlobalEnvironment);

QString readText(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool portIsFree(quint16 port)
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, port);
}

QString findAdb()
{
    const QString fromEnv = qEnvironmentVariable("QF_ADB");
    if (!fromEnv.isEmpty())
        return fromEnv;
    return QStandardPaths::findExecutable(QStringLiteral("adb"));
}
} // namespace

AdbTestEnv &AdbTestEnv::instance()
{
    static AdbTestEnv env;
    return env;
}

AdbTestEnv::~AdbTestEnv()
{
    // The environment's TearDown normally did this already; processes must not outlive the program.
    for (auto &entry : m_devices)
        if (entry.second->process)
            entry.second->process->kill();
}

QString AdbTestEnv::toolPath() const
{
    return QStringLiteral(QF_TOOLS_DIR "/quillfern-devsim");
}

bool AdbTestEnv::start()
{
    if (m_started)
        return true;
    m_adb = findAdb();
    if (m_adb.isEmpty()) {
        m_error = QStringLiteral("adb not found on PATH (install the Debian package adb)");
        return false;
    }
    if (!QFileInfo::exists(toolPath())) {
        m_error = QStringLiteral("simulator missing: %1").arg(toolPath());
        return false;
    }
    m_dir = std::make_unique<QTemporaryDir>();
    QDir(m_dir->path()).mkpath(QStringLiteral("home"));
    QDir(m_dir->path()).mkpath(QStringLiteral("tmp"));
    m_env = QProcessEnvironment::systemEnvironment();
    // adb keeps its keys under $HOME/.android and its server log under $TMPDIR.
    m_env.insert(QStringLiteral("HOME"), m_dir->path() + QStringLiteral("/home"));
    m_env.insert(QStringLiteral("TMPDIR"), m_dir->path() + QStringLiteral("/tmp"));
    m_env.remove(QStringLiteral("ANDROID_SERIAL"));
    m_env.remove(QStringLiteral("ANDROID_ADB_SERVER_PORT"));
    m_env.remove(QStringLiteral("ADB_SERVER_SOCKET"));

    m_port = 0;
    const quint16 first = quint16(15037 + ::getpid() % 1000);
    for (quint16 port = first; port < first + 200; ++port) {
        if (portIsFree(port)) {
            m_port = port;
            break;
        }
    }
    if (m_port == 0) {
        m_error = QStringLiteral("no free port for the adb server");
        return false;
    }
    // The server forks and keeps its output open: give it a file, not a pipe.
    QProcess starter;
    starter.setProcessEnvironment(m_env);
    starter.setStandardInputFile(QProcess::nullDevice());
    starter.setStandardOutputFile(m_dir->path() + QStringLiteral("/start-server.txt"));
    starter.setStandardErrorFile(m_dir->path() + QStringLiteral("/start-server.txt"), QIODevice::Append);
    starter.start(m_adb, {QStringLiteral("-P"), QString::number(m_port), QStringLiteral("start-server")});
    if (!starter.waitForFinished(30000) || starter.exitCode() != 0) {
        m_error = QStringLiteral("adb start-server failed: %1")
                      .arg(readText(m_dir->path() + QStringLiteral("/start-server.txt")));
        return false;
    }
    m_started = true;
    const AdbResult check = runAdb({QStringLiteral("devices")});
    if (check.exitCode != 0) {
        m_error = QStringLiteral("adb devices failed: %1").arg(QString::fromUtf8(check.err));
        shutdown();
        return false;
    }
    return true;
}

AdbConnectionSettings AdbTestEnv::connectionSettings() const
{
    AdbConnectionSettings settings;
    settings.port = m_port;
    return settings;
}

AdbTestEnv::AdbResult AdbTestEnv::runAdb(const QStringList &args, int timeoutMs) const
{
    return runAdbUntil(
        args, [](const QByteArray &) { return false; }, timeoutMs);
}

AdbTestEnv::AdbResult AdbTestEnv::runAdbUntil(const QStringList &args,
                                              const std::function<bool(const QByteArray &)> &done, int timeoutMs) const
{
    AdbResult result;
    QProcess process;
    process.setProcessEnvironment(m_env);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(m_adb, QStringList{QStringLiteral("-P"), QString::number(m_port)} + args);
    if (!process.waitForStarted(5000))
        return result;
    QDeadlineTimer deadline(timeoutMs);
    bool finished = false;
    while (!deadline.hasExpired()) {
        const bool ready = process.waitForReadyRead(int(std::min<qint64>(deadline.remainingTime(), 200)));
        result.out += process.readAllStandardOutput();
        if (done(result.out))
            break;
        if (!ready && process.state() == QProcess::NotRunning) {
            finished = true;
            break;
        }
    }
    if (!finished && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(2000);
    } else {
        result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }
    result.out += process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

AdbTestEnv::AdbResult AdbTestEnv::runAdbOn(const QString &serial, const QStringList &args, int timeoutMs) const
{
    return runAdb(QStringList{QStringLiteral("-s"), serial} + args, timeoutMs);
}

QString AdbTestEnv::deviceState(const QString &serial) const
{
    // `adb devices` lists one "SERIAL\tSTATE" line per device.
    for (const QString &line : runAdb({QStringLiteral("devices")}, 10000).text().split(u'\n')) {
        const QStringList fields = line.split(u'\t');
        if (fields.size() >= 2 && fields.at(0).trimmed() == serial)
            return fields.at(1).trimmed();
    }
    return {};
}

bool AdbTestEnv::waitForState(const QString &serial, const QString &state, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return deviceState(serial) == state; }, timeoutMs);
}

bool AdbTestEnv::launch(Device &device, quint16 port, int timeoutMs)
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(m_env);
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardErrorFile(device.stderrLog, QIODevice::Append);
    const QStringList args =
        QStringList{QStringLiteral("--port"),    QString::number(port),         QStringLiteral("--adb-port"),
                    QString::number(m_port),     QStringLiteral("--adb"),       m_adb,
                    QStringLiteral("--connect"), QStringLiteral("--input-log"), device.inputLog} +
        device.options;
    process->start(toolPath(), args);
    if (!process->waitForStarted(5000)) {
        m_error = QStringLiteral("cannot start %1: %2").arg(toolPath(), process->errorString());
        return false;
    }
    // The first line on stdout is "listening on PORT".
    QByteArray out;
    QDeadlineTimer deadline(timeoutMs);
    while (!out.contains('\n')) {
        if (deadline.hasExpired() || !process->waitForReadyRead(int(deadline.remainingTime()))) {
            m_error = QStringLiteral("simulator did not report its port (options %1): %2")
                          .arg(device.options.join(u' '), readText(device.stderrLog));
            process->kill();
            process->waitForFinished(2000);
            return false;
        }
        out += process->readAllStandardOutput();
    }
    const QByteArray line = out.left(out.indexOf('\n')).trimmed();
    if (!line.startsWith("listening on ")) {
        m_error = QStringLiteral("unexpected simulator output: %1").arg(QString::fromUtf8(line));
        process->kill();
        process->waitForFinished(2000);
        return false;
    }
    device.port = quint16(line.mid(13).toUInt());
    device.serial = QStringLiteral("127.0.0.1:%1").arg(device.port);
    device.process = std::move(process);
    return true;
}

bool AdbTestEnv::waitRegistered(const Device &device, int timeoutMs)
{
    // The simulator registers itself; if that has not worked after a while, help once.
    const int first = std::min(timeoutMs / 2, 8000);
    if (waitForState(device.serial, QStringLiteral("device"), first))
        return true;
    runAdb({QStringLiteral("connect"), device.serial});
    if (waitForState(device.serial, QStringLiteral("device"), timeoutMs - first))
        return true;
    m_error = QStringLiteral("%1 not listed as device (state '%2'); simulator says: %3")
                  .arg(device.serial, deviceState(device.serial), readText(device.stderrLog));
    return false;
}

QString AdbTestEnv::startDevice(const QStringList &options, int timeoutMs)
{
    if (!start())
        return {};
    auto device = std::make_unique<Device>();
    device->options = options;
    ++m_launched;
    device->inputLog = QStringLiteral("%1/input-%2.log").arg(m_dir->path()).arg(m_launched);
    device->stderrLog = QStringLiteral("%1/devsim-%2.log").arg(m_dir->path()).arg(m_launched);
    if (!launch(*device, 0, timeoutMs))
        return {};
    const QString serial = device->serial;
    Device &ref = *device;
    m_devices[serial] = std::move(device);
    if (!waitRegistered(ref, timeoutMs))
        return {};
    return serial;
}

bool AdbTestEnv::stopDevice(const QString &serial)
{
    const auto it = m_devices.find(serial);
    if (it == m_devices.end())
        return false;
    QProcess *process = it->second->process.get();
    if (!process)
        return true;
    if (process->state() != QProcess::NotRunning) {
        process->terminate();
        if (!process->waitForFinished(5000)) {
            process->kill();
            process->waitForFinished(2000);
        }
    }
    it->second->process.reset();
    return true;
}

bool AdbTestEnv::restartDevice(const QString &serial, int timeoutMs)
{
    const auto it = m_devices.find(serial);
    if (it == m_devices.end())
        return false;
    stopDevice(serial);
    // Forget the old connection first: the server would otherwise answer the simulator's
    // "adb connect" with "already connected" and retry the address only every few seconds.
    runAdb({QStringLiteral("disconnect"), serial});
    (void)QTest::qWaitFor([&] { return deviceState(serial).isEmpty(); }, 5000);
    Device &device = *it->second;
    if (!launch(device, device.port, timeoutMs))
        return false;
    return waitRegistered(device, timeoutMs);
}

bool AdbTestEnv::removeDevice(const QString &serial, int timeoutMs)
{
    if (!m_devices.count(serial))
        return false;
    stopDevice(serial);
    m_devices.erase(serial);
    runAdb({QStringLiteral("disconnect"), serial});
    return QTest::qWaitFor([&] { return deviceState(serial).isEmpty(); }, timeoutMs);
}

void AdbTestEnv::removeAllDevices()
{
    while (!m_devices.empty())
        removeDevice(QString(m_devices.begin()->first)); // a copy: the entry goes away inside
}

QString AdbTestEnv::inputLogPath(const QString &serial) const
{
    const auto it = m_devices.find(serial);
    return it == m_devices.end() ? QString() : it->second->inputLog;
}

QString AdbTestEnv::deviceLog(const QString &serial) const
{
    const auto it = m_devices.find(serial);
    return it == m_devices.end() ? QString() : readText(it->second->stderrLog);
}

void AdbTestEnv::shutdown()
{
    for (auto &entry : m_devices)
        stopDevice(entry.first);
    m_devices.clear();
    if (m_started)
        runAdb({QStringLiteral("kill-server")}, 10000);
    m_started = false;
}

void AdbTest::SetUp()
{
    ASSERT_TRUE(env().start()) << env().errorString().toStdString();
    // For tests that go through the application controller, which reads the store.
    Settings::setValue(SettingsKey::adbServer, QStringLiteral("127.0.0.1"));
    Settings::setValue(SettingsKey::adbPort, QString::number(env().serverPort()));
}

void AdbTest::TearDown()
{
    env().removeAllDevices();
}

QString AdbTest::startDevice(const QStringList &options)
{
    const QString serial = env().startDevice(options);
    EXPECT_FALSE(serial.isEmpty()) << env().errorString().toStdString();
    return serial;
}
