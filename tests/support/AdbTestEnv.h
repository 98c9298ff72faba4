// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbConnectionSettings.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <map>
#include <memory>

class QProcess;

// The real adb server on a private port plus simulated devices (quillfern-devsim), for
// integration tests.
//
// One server per test program: AdbTestEnv::instance().start() starts it on first use
// (port 15037 + pid % 1000, or the next free one, HOME and TMPDIR in a private folder so keys
// and server logs stay there) and a GoogleTest global environment kills it, and every device,
// when the program ends. Tests normally derive from AdbTest (below), which starts the server,
// points the settings "adbServer"/"adbPort" at it and removes the devices a test started.
//
// Simulated devices run with --connect, so they register themselves and re-register after a
// drop; startDevice() returns once `adb devices` lists the serial as "device". A device that is
// killed (stopDevice) stays listed "offline" for about a minute, as the real server keeps
// retrying it; removeDevice() also runs `adb disconnect` so it is gone from the list at once.
//
// All calls block the calling (test) thread; waits poll with QTest::qWaitFor, so queued
// events of the code under test keep running meanwhile.
class AdbTestEnv
{
public:
    struct AdbResult
    {
        int exitCode = -1; // -1: the tool did not start or timed out
        QByteArray out;    // standard output
        QByteArray err;    // standard error
        QString text() const { return QString::fromUtf8(out); }
    };

    static AdbTestEnv &instance();

    // Starts the server once; true when it answers. errorString() says why not.
    bool start();
    QString errorString() const { return m_error; }

    QString adbPath() const { return m_adb; }
    quint16 serverPort() const { return m_port; }
    // Environment for running adb by hand: HOME and TMPDIR of the private folder.
    QProcessEnvironment adbEnvironment() const { return m_env; }

    // For readers and datasources: this server.
    AdbConnectionSettings connectionSettings() const;

    // Runs `adb -P <serverPort> args...`; stdin is /dev/null.
    AdbResult runAdb(const QStringList &args, int timeoutMs = 15000) const;
    // Runs adb (as runAdb) until done(standard output so far) holds or timeoutMs passes, then
    // kills it; for commands that never end by themselves, such as logcat. exitCode is -1 when
    // it was killed.
    AdbResult runAdbUntil(const QStringList &args, const std::function<bool(const QByteArray &)> &done,
                          int timeoutMs = 15000) const;
    // Runs `adb -P <serverPort> -s serial args...`.
    AdbResult runAdbOn(const QString &serial, const QStringList &args, int timeoutMs = 15000) const;

    // Launches quillfern-devsim with extra options (e.g. {"--rate", "0", "--lines", "100"}),
    // waits until the server lists it as "device" and returns its serial "127.0.0.1:PORT";
    // empty on failure (errorString()). Every device gets "--input-log <file>" (see inputLogPath).
    QString startDevice(const QStringList &options = {}, int timeoutMs = 20000);
    // Kills the device process (SIGTERM, then SIGKILL); the server keeps it listed "offline".
    bool stopDevice(const QString &serial);
    // Starts the device again on the same port with the same options; waits for "device".
    bool restartDevice(const QString &serial, int timeoutMs = 20000);
    // stopDevice + `adb disconnect`; waits until the serial is no longer listed.
    bool removeDevice(const QString &serial, int timeoutMs = 10000);
    void removeAllDevices();

    // The file the device's "input ..." commands are appended to.
    QString inputLogPath(const QString &serial) const;
    // The device's own diagnostic output so far (its stderr).
    QString deviceLog(const QString &serial) const;

    // The state `adb devices` lists for serial: "device", "offline", ..., or empty when absent.
    QString deviceState(const QString &serial) const;
    bool waitForState(const QString &serial, const QString &state, int timeoutMs = 20000) const;

    // Kills every device and the server; start() may be called again afterwards.
    void shutdown();

private:
    struct Device
    {
        QString serial;
        quint16 port = 0;
        QStringList options;
        QString inputLog;
        QString stderrLog;
        std::unique_ptr<QProcess> process;
    };

    AdbTestEnv() = default;
    ~AdbTestEnv();
    bool launch(Device &device, quint16 port, int timeoutMs);
    bool waitRegistered(const Device &device, int timeoutMs);
    QString toolPath() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_adb;
    quint16 m_port = 0;
    QProcessEnvironment m_env;
    bool m_started = false;
    QString m_error;
    std::map<QString, std::unique_ptr<Device>> m_devices;
    int m_launched = 0;
};

// Base fixture: the server is up (the test fails at once otherwise), the settings point at
// it, and the devices the test started are removed when it ends, so every test starts with
// an empty device list.
class AdbTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    AdbTestEnv &env() { return AdbTestEnv::instance(); }
    // As AdbTestEnv::startDevice, with a GoogleTest failure on error.
    QString startDevice(const QStringList &options = {});
};
