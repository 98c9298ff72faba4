// SPDX-License-Identifier: MIT
// The ADB readers against the real adb server and simulated devices.
#include "Android/AdbSocketThread.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

namespace {

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
    template <class Reader, class Recorder> void prepare(Reader &reader, Recorder &rec, const QString &serial)
    {
        AdbConnectionSettings settings = env().connectionSettings();
        settings.clearLogOnStart = clearLogOnStart;
        reader.setConnectionSettings(settings);
        reader.setDeviceId(serial);
        reader.setDelegate(&rec);
    }
    // Runs a reader until it has stopped; its events.
    QStringList runUntilStopped(const QString &serial)
    {
        LogReaderRecorder rec;
        LogReader reader;
        prepare(reader, rec, serial);
        reader.connect();
        EXPECT_TRUE(waitUntil([&] { return rec.events().count("stopped") == 1; }, 15000));
        return rec.events();
    }

    bool clearLogOnStart = false;
};

const QStringList kQuietDevice = {"--seed", "3", "--buffer", "30", "--rate", "0", "--lines", "0"};

} // namespace

// One quiet device: its log streamed on a worker thread, its ps output, its log cleared on start; then a
// second device.
TEST_F(AdbReadersTest, StreamsTheLogOnAWorkerThreadReadsPsClearsTheLogAndNeedsASerialForTwoDevices)
{
    const QString serial = startDevice(kQuietDevice);
    ASSERT_FALSE(serial.isEmpty());
    {
        SCOPED_TRACE("log stream on a worker thread");
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
        ASSERT_TRUE(waitUntil([&] { return rec.events().count("stopped") == 1; }, 5000));
        EXPECT_EQ(rec.events().last(), "stopped");
    }
    {
        SCOPED_TRACE("ps");
        PidReaderRecorder rec;
        PidReader reader;
        prepare(reader, rec, serial);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 10000));
        EXPECT_EQ(rec.events().value(0), "pids:" + env().runAdbOn(serial, {"shell", "ps", "-A"}).text());
    }
    {
        SCOPED_TRACE("clear on start: the whole buffer was replayed above, now only the marker is left");
        clearLogOnStart = true;
        LogReaderRecorder rec;
        LogReader reader;
        prepare(reader, rec, serial);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return rec.size() >= 1; }, 15000));
        reader.stop();
        ASSERT_TRUE(waitUntil([&] { return rec.events().count("stopped") == 1; }, 5000));
        EXPECT_EQ(rec.events().join(u'|'), "line:--------- beginning of main\n|stopped");
    }
    // With a second device and no serial the server's message names the case the log datasource looks for.
    ASSERT_FALSE(startDevice(kQuietDevice).isEmpty());
    EXPECT_EQ(runUntilStopped(QString()).join(u'|'), "error:logReader:2:more than one device/emulator|stopped");
}

TEST_F(AdbReadersTest, TheServersFailureMessageStopsTheReader)
{
    // adb 29 says "device 'SERIAL' not found": the lower-case "device not found" test does not
    // match it, so it is an ordinary failure, then the end of the connection.
    EXPECT_EQ(runUntilStopped("no-such-serial").join(u'|'),
              "error:logReader:2:device 'no-such-serial' not found|stopped");
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
