// SPDX-License-Identifier: MIT
// The ADB readers against the real adb server and simulated devices.
#include "Android/AdbSocketThread.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

#include <QTcpServer>
#include <QTcpSocket>

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
                QObject::connect(client, &QTcpSocket::readyRead, upstream,
                                 [client, upstream] { upstream->write(client->readAll()); });
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

// "line:<text>\n" for every line of adb's output, as the recorder writes them.
QStringList logLines(const QByteArray &out)
{
    QStringList lines;
    for (const QByteArray &line : out.split('\n'))
        if (!line.isEmpty())
            lines.append("line:" + QString::fromUtf8(line) + u'\n');
    return lines;
}

class AdbReadersTest : public AdbTest
{
protected:
    template <class Reader, class Recorder>
    void prepare(Reader &reader, Recorder &rec, const QString &serial, quint16 port = 0)
    {
        AdbConnectionSettings settings = env().connectionSettings();
        settings.clearLogOnStart = clearLogOnStart;
        if (port)
            settings.port = port;
        reader.setConnectionSettings(settings);
        reader.setDeviceId(serial);
        reader.setDelegate(&rec);
    }
    template <class Reader, class Recorder>
    void start(Reader &reader, Recorder &rec, const QString &serial, quint16 port = 0)
    {
        prepare(reader, rec, serial, port);
        reader.connect();
    }
    // Runs a reader until it has stopped; its events.
    QStringList runUntilStopped(const QString &serial)
    {
        LogReaderRecorder rec;
        LogReader reader;
        start(reader, rec, serial);
        EXPECT_TRUE(waitUntil([&] { return rec.count("stopped") == 1; }, 15000));
        return rec.events();
    }

    bool clearLogOnStart = false;
};

const QStringList kQuietDevice = {"--seed", "3", "--buffer", "30", "--rate", "0", "--lines", "0"};

} // namespace

TEST_F(AdbReadersTest, StreamsTheDeviceLogLineByLineOnAWorkerThread)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    const QStringList expected = logLines(env().runAdbOn(serial, {"logcat", "-d"}).out);
    ASSERT_EQ(expected.size(), 31);

    LogReaderRecorder rec;
    auto reader = std::make_unique<LogReader>();
    LogReader *raw = reader.get();
    prepare(*raw, rec, serial);
    auto worker = std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("LogReaderTest"));
    worker->connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() >= expected.size(); }, 15000));
    EXPECT_EQ(rec.events(), expected);
    for (QThread *t : rec.threads())
        EXPECT_EQ(t, worker->thread());

    raw->stop(); // from the test's thread
    ASSERT_TRUE(waitUntil([&] { return rec.count("stopped") == 1; }, 5000));
    EXPECT_EQ(rec.events().last(), "stopped");
    worker.reset();
}

TEST_F(AdbReadersTest, ClearLogOnStartClearsOnOneConnectionAndStreamsOnASecond)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    for (const bool clear : {false, true}) {
        CountingProxy proxy(env().serverPort());
        clearLogOnStart = clear;
        LogReaderRecorder rec;
        LogReader reader;
        start(reader, rec, serial, proxy.port());
        // Without the clear the whole buffer is replayed; after it only the buffer marker.
        ASSERT_TRUE(waitUntil([&] { return rec.size() >= (clear ? 1 : 31); }, 15000));
        reader.stop();
        ASSERT_TRUE(waitUntil([&] { return rec.count("stopped") == 1; }, 5000));
        if (clear) { // the clearing connection ended silently
            EXPECT_EQ(rec.events().join(u'|'), "line:--------- beginning of main\n|stopped");
        }
        EXPECT_EQ(proxy.count(), clear ? 2 : 1);
    }
}

TEST_F(AdbReadersTest, TheServersFailureMessagesStopTheReader)
{
    // adb 29 says "device 'SERIAL' not found": the lower-case "device not found" test does not
    // match it, so it is an ordinary failure, then the end of the connection.
    EXPECT_EQ(runUntilStopped("no-such-serial").join(u'|'), "error:logReader:2:device 'no-such-serial' not found|stopped");
    ASSERT_FALSE(startDevice(kQuietDevice).isEmpty());
    ASSERT_FALSE(startDevice(kQuietDevice).isEmpty());
    EXPECT_EQ(runUntilStopped(QString()).join(u'|'), "error:logReader:2:more than one device/emulator|stopped");
}

TEST_F(AdbReadersTest, DeviceDroppedMidStreamStopsTheReader)
{
    const QString serial = startDevice({"--rate", "50", "--drop-after", "2"});
    ASSERT_FALSE(serial.isEmpty());
    const QStringList events = runUntilStopped(serial);
    EXPECT_GT(events.size(), 1); // lines came before the drop
    EXPECT_EQ(events.last(), "stopped");
    EXPECT_EQ(events.filter("error:").size(), 0);
}

TEST_F(AdbReadersTest, PsOutputOfCurrentAndOldDevices)
{
    const QString current = startDevice(kQuietDevice);
    const QString old = startDevice({"--old-device", "--lines", "0"});
    ASSERT_FALSE(current.isEmpty() || old.isEmpty());
    auto runPs = [&](const QString &serial, bool dashA) {
        PidReaderRecorder rec;
        PidReader reader;
        reader.setAddDashArg(dashA);
        start(reader, rec, serial);
        EXPECT_TRUE(waitUntil([&] { return rec.size() == 1; }, 10000));
        return rec.events().value(0);
    };
    EXPECT_EQ(runPs(current, true), "pids:" + env().runAdbOn(current, {"shell", "ps", "-A"}).text());
    // An old device answers "ps -A" with an error and plain "ps" with a table.
    const QString withDash = runPs(old, true);
    EXPECT_TRUE(withDash.startsWith("pids:") && withDash.contains("bad pid '-A'")) << withDash.toStdString();
    const QString plain = runPs(old, false);
    EXPECT_TRUE(plain.startsWith("pids:USER")) << plain.toStdString();
    EXPECT_GT(plain.count(u'\n'), 3);
}
