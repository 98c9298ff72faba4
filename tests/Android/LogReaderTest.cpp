// SPDX-License-Identifier: MIT
#include "Android/AdbSettings.h"
#include "Android/LogReader.h"
#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

#include <QTcpServer>
#include <QTest>

#include <cerrno>

namespace {

const QString kLogcat = QStringLiteral("shell:export ANDROID_LOG_TAGS=\"\"; exec logcat -v threadtime");

class LogReaderTest : public FakeAdbServerTest
{
protected:
    // Runs the reader until logReaderStopped.
    QStringList run(const QString &serial = QStringLiteral("SERIAL"))
    {
        reader.setDeviceId(serial);
        reader.setDelegate(&rec);
        reader.connect();
        EXPECT_TRUE(waitUntil([&] { return rec.count(QStringLiteral("stopped")) > 0; }, 5000));
        return rec.events();
    }

    LogReaderRecorder rec;
    LogReader reader;
};

} // namespace

TEST_F(LogReaderTest, StreamsEveryWholeLineWithItsTerminatorAndDropsTheLastFragment)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(kLogcat),
                      FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::reply("01-02 10:00:00.000  1  2 I Tag: one\n"
                                           "crlf line\r\n"
                                           "\n"
                                           "bad \xff utf8\n"
                                           "\xc3\xa9t\xc3\xa9\n"
                                           "no line feed"),
                      FakeAdbServer::close()});
    EXPECT_EQ(run(), (QStringList{QStringLiteral("line:01-02 10:00:00.000  1  2 I Tag: one\n"),
                                  QStringLiteral("line:crlf line\r\n"), QStringLiteral("line:\n"),
                                  QStringLiteral("line:<absent>"), QStringLiteral("line:\u00e9t\u00e9\n"),
                                  QStringLiteral("stopped")}));
    EXPECT_EQ(server.received(0), QByteArray("0015host:transport:SERIAL") + "003b" + kLogcat.toUtf8());
}

TEST_F(LogReaderTest, WithoutSerialSelectsAnyTransportAndInsertsLogTagsUnescaped)
{
    FakeAdbServer::setClientSetting(QStringLiteral("adbLogTags"), QStringLiteral("*:S My\"Tag:V"));
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport-any")), FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::expectRequest(
                          QStringLiteral("shell:export ANDROID_LOG_TAGS=\"*:S My\"Tag:V\"; exec logcat -v threadtime")),
                      FakeAdbServer::reply("OKAYx\n"), FakeAdbServer::close()});
    EXPECT_EQ(run(QString()), (QStringList{QStringLiteral("line:x\n"), QStringLiteral("stopped")}));
}

TEST_F(LogReaderTest, ClearLogOnStartUsesTwoConnectionsAndTheFirstEndsSilently)
{
    FakeAdbServer::setClientSetting(QStringLiteral("clearLogOnStart"), true);
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::expectRequest(QStringLiteral("shell:exec logcat -c")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::close()});
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(kLogcat),
                      FakeAdbServer::reply("OKAYafter clear\n"), FakeAdbServer::close()});
    EXPECT_EQ(run(), (QStringList{QStringLiteral("line:after clear\n"), QStringLiteral("stopped")}));
    EXPECT_EQ(server.connectionCount(), 2);
    EXPECT_FALSE(reader.sentClearDevice());
    EXPECT_FALSE(waitUntil([&] { return rec.size() > 2; }, 200));
}

TEST_F(LogReaderTest, DeviceNotFoundInAnyCaseIsReportedAsSuch)
{
    for (const QByteArray &message : {QByteArray("error: device not found"), QByteArray("DEVICE NOT FOUND")}) {
        FakeAdbServer local;
        local.useForClient();
        local.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                         FakeAdbServer::fail(message), FakeAdbServer::close()});
        LogReaderRecorder r;
        LogReader lr;
        lr.setDeviceId(QStringLiteral("SERIAL"));
        lr.setDelegate(&r);
        lr.connect();
        ASSERT_TRUE(waitUntil([&] { return r.count(QStringLiteral("stopped")) > 0; }, 5000));
        EXPECT_EQ(r.events(), (QStringList{QStringLiteral("notFound:logReader:2:") + QString::fromLatin1(message),
                                           QStringLiteral("stopped")}));
        EXPECT_FALSE(lr.isConnecting());
    }
}

TEST_F(LogReaderTest, OtherFailuresStopWithErrorCode2)
{
    // adb 29's wording for a missing serial does not contain "device not found".
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::fail("device 'SERIAL' not found"), FakeAdbServer::close()});
    EXPECT_EQ(run(), (QStringList{QStringLiteral("error:logReader:2:device 'SERIAL' not found"),
                                  QStringLiteral("stopped")}));
}

TEST_F(LogReaderTest, FailureOfTheLogcatOrClearRequestIsReadTheSameWay)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport-any")), FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::expectRequest(kLogcat), FakeAdbServer::fail("more than one device/emulator"),
                      FakeAdbServer::close()});
    EXPECT_EQ(run(QString()), (QStringList{QStringLiteral("error:logReader:2:more than one device/emulator"),
                                           QStringLiteral("stopped")}));

    FakeAdbServer clearing;
    clearing.useForClient();
    FakeAdbServer::setClientSetting(QStringLiteral("clearLogOnStart"), true);
    clearing.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:S")), FakeAdbServer::reply("OKAY"),
                        FakeAdbServer::expectRequest(QStringLiteral("shell:exec logcat -c")),
                        FakeAdbServer::fail("nope"), FakeAdbServer::close()});
    LogReaderRecorder r;
    LogReader lr;
    lr.setDeviceId(QStringLiteral("S"));
    lr.setDelegate(&r);
    lr.connect();
    ASSERT_TRUE(waitUntil([&] { return r.count(QStringLiteral("error:logReader:2:nope")) > 0; }, 5000));
    // The clear request is outstanding, so its connection's end is not reported.
    EXPECT_FALSE(waitUntil([&] { return r.size() > 1; }, 300));
    EXPECT_TRUE(lr.sentClearDevice());
}

TEST_F(LogReaderTest, BrokenFailureRepliesEndInStoppedOnly)
{
    const QList<QByteArray> replies = {
        "FAIL0000",                  // empty message: nothing to read, nothing reported
        "FAILzzzzdevice not found",  // not hex: length 0
        "FAIL00ffdevice not found",  // longer than what follows
        "FAIL00",                    // truncated length
        "FAI",                       // truncated status
        "okay",                      // wrong case is a failure status with no length after it
    };
    for (const QByteArray &replyBytes : replies) {
        FakeAdbServer local;
        local.useForClient();
        local.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                         FakeAdbServer::reply(replyBytes), FakeAdbServer::close()});
        LogReaderRecorder r;
        LogReader lr;
        lr.setDeviceId(QStringLiteral("SERIAL"));
        lr.setDelegate(&r);
        lr.connect();
        ASSERT_TRUE(waitUntil([&] { return r.count(QStringLiteral("stopped")) > 0; }, 5000)) << replyBytes.data();
        EXPECT_EQ(r.events(), QStringList{QStringLiteral("stopped")}) << replyBytes.data();
    }
}

TEST_F(LogReaderTest, UnreachableServerReportsNotRunningThenStopped)
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QString::number(port));
    EXPECT_EQ(run(), (QStringList{QStringLiteral("notRunning:%1").arg(ECONNREFUSED), QStringLiteral("stopped")}));
    EXPECT_FALSE(reader.isConnected());
}

TEST_F(LogReaderTest, StopEndsTheStreamWithOneStoppedAndTheReaderCanRunAgain)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(kLogcat),
                      FakeAdbServer::reply("OKAYfirst\n")});
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(kLogcat),
                      FakeAdbServer::reply("OKAYsecond\n"), FakeAdbServer::close()});
    reader.setDeviceId(QStringLiteral("SERIAL"));
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 5000));
    EXPECT_TRUE(reader.isConnected());
    reader.stop();
    reader.stop();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 2; }, 5000));
    EXPECT_FALSE(reader.isConnected());
    ASSERT_TRUE(waitUntil([&] { return server.clientClosedCount() == 1; }, 5000));

    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 4; }, 5000));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("line:first\n"), QStringLiteral("stopped"),
                                         QStringLiteral("line:second\n"), QStringLiteral("stopped")}));
}

TEST_F(LogReaderTest, IsConnectedDuringConnectingAndCode7WhileConnectingIsNotNotRunning)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL"))});
    reader.setDeviceId(QStringLiteral("SERIAL"));
    reader.setDelegate(&rec);
    reader.connect();
    EXPECT_TRUE(reader.isConnecting());
    EXPECT_FALSE(reader.socket()->isConnected());
    EXPECT_TRUE(reader.isConnected());

    // The peer's close (code 7) reaches a reader that is still connecting.
    reader.didDisconnect(AdbError{AsyncSocket::errorDomain, AsyncSocket::ClosedError, QStringLiteral("closed"), {}, {}});
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("stopped")});
    EXPECT_FALSE(reader.isConnecting());

    reader.connect();
    reader.didDisconnect(AdbError::posixError(ECONNREFUSED));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("stopped"), QStringLiteral("notRunning:%1").arg(ECONNREFUSED),
                                         QStringLiteral("stopped")}));
}

TEST_F(LogReaderTest, PortSettingKeepsItsLow16Bits)
{
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QString::number(70000));
    EXPECT_EQ(AdbSettings::adbPort(), 4464);
    // A real connection lands on the wrapped port.
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QString::number(int(server.port()) + 65536));
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::fail("x"), FakeAdbServer::close()});
    EXPECT_EQ(run(), (QStringList{QStringLiteral("error:logReader:2:x"), QStringLiteral("stopped")}));
}

TEST(AdbSettings, EmptyOrAbsentServerAndPortMeanLocalDefault)
{
    FakeAdbServer::clearClientSettings();
    EXPECT_EQ(AdbSettings::adbServer(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(AdbSettings::adbPort(), 5037);
    EXPECT_EQ(AdbSettings::adbLogTags(), QString());
    EXPECT_FALSE(AdbSettings::clearLogOnStart());
    FakeAdbServer::setClientSetting(QStringLiteral("adbServer"), QString());
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QString());
    EXPECT_EQ(AdbSettings::adbServer(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(AdbSettings::adbPort(), 5037);
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QStringLiteral("5038abc"));
    EXPECT_EQ(AdbSettings::adbPort(), 5038);
    FakeAdbServer::clearClientSettings();
}

TEST_F(LogReaderTest, CloseAtEveryBytePositionEndsInStoppedWithTheWholeLinesSoFar)
{
    const QByteArray first = "OKAY";
    const QByteArray second = "OKAYab\ncd\n";
    for (qsizetype cut = 0; cut <= first.size() + second.size(); ++cut) {
        FakeAdbServer local;
        local.useForClient();
        FakeAdbServer::Script script{FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL"))};
        if (cut < first.size()) {
            script.append(FakeAdbServer::reply(first.left(cut)));
        } else {
            script.append(FakeAdbServer::reply(first));
            script.append(FakeAdbServer::expectRequest(kLogcat));
            script.append(FakeAdbServer::reply(second.left(cut - first.size())));
        }
        script.append(FakeAdbServer::close());
        local.addScript(script);
        LogReaderRecorder r;
        LogReader lr;
        lr.setDeviceId(QStringLiteral("SERIAL"));
        lr.setDelegate(&r);
        lr.connect();
        ASSERT_TRUE(waitUntil([&] { return r.count(QStringLiteral("stopped")) > 0; }, 5000)) << cut;
        QStringList expected;
        if (cut >= first.size() + 7)
            expected.append(QStringLiteral("line:ab\n"));
        if (cut >= first.size() + 10)
            expected.append(QStringLiteral("line:cd\n"));
        expected.append(QStringLiteral("stopped"));
        EXPECT_EQ(r.events(), expected) << "cut at " << cut;
        EXPECT_TRUE(local.mismatches().isEmpty());
    }
}

namespace {

// Only the text form: the reader's bytes reach it through the interface's default decoding.
class TextOnlyDelegate : public LogReaderDelegate
{
public:
    void logLineReceived(const std::optional<QString> &line) override { lines.append(line); }
    void logReaderStopped() override {}
    void logReaderStoppedWithError(const AdbError &) override {}
    void adbNotRunningError(const AdbError &) override {}
    void adbDeviceNotFound(const AdbError &) override {}
    QList<std::optional<QString>> lines;
};

} // namespace

TEST(LogReaderDelegate, ByteFormDecodesToTheTextFormOrAbsent)
{
    TextOnlyDelegate d;
    d.logLineDataReceived("a \xc3\xa9\r\n");
    d.logLineDataReceived("cut \xe2\x82\n"); // a character cut short
    d.logLineDataReceived("\xef\xbb\xbf" "bom\n");
    d.logLineDataReceived("\n");
    ASSERT_EQ(d.lines.size(), 4);
    EXPECT_EQ(d.lines[0], QStringLiteral("a \u00e9\r\n"));
    EXPECT_FALSE(d.lines[1].has_value());
    EXPECT_EQ(d.lines[2], QStringLiteral("\ufeffbom\n")); // a leading BOM stays a character
    EXPECT_EQ(d.lines[3], QStringLiteral("\n"));
}

TEST(LogReaderDelegate, BulkFormHandsEachLineOnWithItsOwnTerminator)
{
    TextOnlyDelegate d;
    // One bad line among good ones spoils only itself; CR LF stays with its line.
    d.logLinesDataReceived("one\r\ncut \xe2\x82\n\nlast\n");
    ASSERT_EQ(d.lines.size(), 4);
    EXPECT_EQ(d.lines[0], QStringLiteral("one\r\n"));
    EXPECT_FALSE(d.lines[1].has_value());
    EXPECT_EQ(d.lines[2], QStringLiteral("\n"));
    EXPECT_EQ(d.lines[3], QStringLiteral("last\n"));
}
