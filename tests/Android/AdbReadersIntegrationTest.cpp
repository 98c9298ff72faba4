// SPDX-License-Identifier: MIT
// The ADB readers against the real adb server and simulated devices.
#include "Android/AdbSocketThread.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "Helpers/Settings.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <cerrno>

namespace {

// Forwards every connection to the adb server and counts them, so a test sees how many
// connections the client opened.
class CountingProxy
{
public:
    explicit CountingProxy(quint16 target) : m_target(target)
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket *client = m_server.nextPendingConnection()) {
                ++m_count;
                auto *upstream = new QTcpSocket(client);
                upstream->connectToHost(QHostAddress::LocalHost, m_target);
                QObject::connect(client, &QTcpSocket::readyRead, upstream, [client, upstream] {
                    upstream->write(client->readAll());
                });
                QObject::connect(upstream, &QTcpSocket::readyRead, client,
                                 [client, upstream] { client->write(upstream->readAll()); });
                QObject::connect(upstream, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
                QObject::connect(client, &QTcpSocket::disconnected, upstream, &QTcpSocket::disconnectFromHost);
                QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
            }
        });
    }
    quint16 port() const { return m_server.serverPort(); }
    int count() const { return m_count; }

private:
    QTcpServer m_server;
    quint16 m_target;
    int m_count = 0;
};

QStringList logLines(const QByteArray &out)
{
    QStringList lines;
    for (const QByteArray &line : out.split('\n'))
        if (!line.isEmpty())
            lines.append(QString::fromUtf8(line) + u'\n');
    return lines;
}

class AdbReadersTest : public AdbTest
{
protected:
    void TearDown() override
    {
        Settings::remove(SettingsKey::clearLogOnStart);
        Settings::remove(SettingsKey::adbLogTags);
        AdbTest::TearDown();
    }
    QStringList linesOf(const LogReaderRecorder &rec)
    {
        QStringList lines;
        for (const QString &e : rec.events())
            if (e.startsWith(QLatin1String("line:")))
                lines.append(e.mid(5));
        return lines;
    }
};

const QStringList kQuietDevice = {QStringLiteral("--seed"), QStringLiteral("3"), QStringLiteral("--buffer"),
                                  QStringLiteral("30"), QStringLiteral("--rate"), QStringLiteral("0"),
                                  QStringLiteral("--lines"), QStringLiteral("0")};

} // namespace

TEST_F(AdbReadersTest, StreamsTheDeviceLogLineByLineOnAWorkerThread)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    const QStringList expected = logLines(env().runAdbOn(serial, {QStringLiteral("logcat"), QStringLiteral("-d")}).out);
    ASSERT_EQ(expected.size(), 31);

    LogReaderRecorder rec;
    auto reader = std::make_unique<LogReader>();
    reader->setDeviceId(serial);
    reader->setDelegate(&rec);
    LogReader *raw = reader.get();
    auto worker = std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("LogReaderTest"));
    worker->connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() >= expected.size(); }, 15000));
    EXPECT_EQ(linesOf(rec), expected);
    for (QThread *t : rec.threads())
        EXPECT_EQ(t, worker->thread());

    raw->stop(); // from the test's thread
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 5000));
    EXPECT_EQ(rec.events().last(), QStringLiteral("stopped"));
    worker.reset();
}

TEST_F(AdbReadersTest, ClearLogOnStartClearsOnOneConnectionAndStreamsOnASecond)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    Settings::setValue(SettingsKey::clearLogOnStart, true);
    CountingProxy proxy(env().serverPort());
    Settings::setValue(SettingsKey::adbPort, QString::number(proxy.port()));

    LogReaderRecorder rec;
    LogReader reader;
    reader.setDeviceId(serial);
    reader.setDelegate(&rec);
    reader.connect();
    // After the clear only the buffer marker is replayed.
    ASSERT_TRUE(waitUntil([&] { return rec.size() >= 1; }, 15000));
    EXPECT_FALSE(waitUntil([&] { return rec.size() > 1; }, 500));
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("line:--------- beginning of main\n")});
    EXPECT_EQ(proxy.count(), 2);
    EXPECT_EQ(rec.count(QStringLiteral("stopped")), 0); // the clearing connection ended silently

    reader.stop();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 5000));
    EXPECT_EQ(proxy.count(), 2);
}

TEST_F(AdbReadersTest, WithoutClearTheWholeBufferIsReplayed)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    CountingProxy proxy(env().serverPort());
    Settings::setValue(SettingsKey::adbPort, QString::number(proxy.port()));
    LogReaderRecorder rec;
    LogReader reader;
    reader.setDeviceId(serial);
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() >= 31; }, 15000));
    EXPECT_EQ(proxy.count(), 1);
    reader.stop();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 5000));
}

TEST_F(AdbReadersTest, SerialNotAttachedStopsWithTheServersMessage)
{
    // adb 29 says "device 'SERIAL' not found": the lower-case "device not found" test does not
    // match it, so it is an ordinary failure, then the end of the connection.
    LogReaderRecorder rec;
    LogReader reader;
    reader.setDeviceId(QStringLiteral("no-such-serial"));
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 10000));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("error:logReader:2:device 'no-such-serial' not found"),
                                         QStringLiteral("stopped")}));
}

TEST_F(AdbReadersTest, AnyTransportWithTwoDevicesFailsWithMoreThanOneDevice)
{
    ASSERT_FALSE(startDevice(kQuietDevice).isEmpty());
    ASSERT_FALSE(startDevice(kQuietDevice).isEmpty());
    LogReaderRecorder rec;
    LogReader reader;
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 10000));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("error:logReader:2:more than one device/emulator"),
                                         QStringLiteral("stopped")}));
}

TEST_F(AdbReadersTest, NoServerListeningIsNotRunningThenStopped)
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    Settings::setValue(SettingsKey::adbPort, QString::number(port));
    LogReaderRecorder rec;
    LogReader reader;
    reader.setDeviceId(QStringLiteral("whatever"));
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 10000));
    EXPECT_EQ(rec.events(),
              (QStringList{QStringLiteral("notRunning:%1").arg(ECONNREFUSED), QStringLiteral("stopped")}));
}

TEST_F(AdbReadersTest, DeviceDroppedMidStreamStopsTheReader)
{
    const QString serial = startDevice({QStringLiteral("--rate"), QStringLiteral("50"), QStringLiteral("--drop-after"),
                                        QStringLiteral("2")});
    ASSERT_FALSE(serial.isEmpty());
    LogReaderRecorder rec;
    LogReader reader;
    reader.setDeviceId(serial);
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) == 1; }, 15000));
    const QStringList events = rec.events();
    EXPECT_GT(events.size(), 1); // lines came before the drop
    EXPECT_EQ(events.last(), QStringLiteral("stopped"));
    EXPECT_EQ(events.filter(QStringLiteral("error:")).size(), 0);
}

TEST_F(AdbReadersTest, OldDeviceAnswersPsDashAWithAnErrorAndPlainPsWithATable)
{
    const QString serial = startDevice({QStringLiteral("--old-device"), QStringLiteral("--lines"), QStringLiteral("0")});
    ASSERT_FALSE(serial.isEmpty());
    auto runPs = [&](bool dashA) {
        PidReaderRecorder rec;
        PidReader reader;
        reader.setDeviceId(serial);
        reader.setAddDashArg(dashA);
        reader.setDelegate(&rec);
        reader.connect();
        EXPECT_TRUE(waitUntil([&] { return rec.size() == 1; }, 10000));
        return rec.events().value(0);
    };
    const QString withDash = runPs(true);
    EXPECT_TRUE(withDash.startsWith(QLatin1String("pids:"))) << withDash.toStdString();
    EXPECT_TRUE(withDash.contains(QLatin1String("bad pid '-A'"))) << withDash.toStdString();
    const QString plain = runPs(false);
    EXPECT_TRUE(plain.startsWith(QLatin1String("pids:USER"))) << plain.toStdString();
    EXPECT_GT(plain.count(u'\n'), 3);
}

TEST_F(AdbReadersTest, PsDashAOnACurrentDeviceListsItsProcesses)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    const QString expected =
        env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("ps"), QStringLiteral("-A")}).text();
    PidReaderRecorder rec;
    PidReader reader;
    reader.setDeviceId(serial);
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 10000));
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("pids:") + expected});
}
