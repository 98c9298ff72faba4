// SPDX-License-Identifier: MIT
#include "Android/LogReader.h"
#include "support/AdbReaderRun.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using FS = FakeAdbServer;
using LogRun = ReaderRun<LogReader, LogReaderRecorder>;

const QString kLogcat = QStringLiteral("shell:export ANDROID_LOG_TAGS=\"\"; exec logcat -v threadtime");
const QString kClear = QStringLiteral("shell:exec logcat -c");

FS::Script logcatScript(const QByteArray &reply, const QString &serial = QStringLiteral("SERIAL"))
{
    return FS::transportThen(serial, kLogcat) + FS::Script{FS::reply(reply), FS::close()};
}

} // namespace

TEST(LogReader, StreamsEveryWholeLineWithItsTerminatorAndDropsTheLastFragment)
{
    // A line cut inside a character spoils only itself; a leading BOM stays a character.
    LogRun run(logcatScript("OKAY01-02 10:00:00.000  1  2 I Tag: one\n"
                            "crlf line\r\n"
                            "\n"
                            "cut \xe2\x82\n"
                            "\xc3\xa9t\xc3\xa9\n"
                            "\xef\xbb\xbf"
                            "bom\n"
                            "no line feed"));
    EXPECT_EQ(run.runToEnd().join(u'|'), "line:01-02 10:00:00.000  1  2 I Tag: one\n|line:crlf line\r\n|line:\n"
                                         "|line:<absent>|line:\u00e9t\u00e9\n|line:\ufeffbom\n|stopped");
    EXPECT_EQ(run.server.received(0), QByteArray("0015host:transport:SERIAL") + "003b" + kLogcat.toUtf8());
}

TEST(LogReader, InsertsLogTagsUnescaped)
{
    LogRun run(
        FS::transportThen(QString(), "shell:export ANDROID_LOG_TAGS=\"*:S My\"Tag:V\"; exec logcat -v threadtime") +
        FS::Script{FS::reply("OKAYx\n"), FS::close()});
    run.settings.logTags = "*:S My\"Tag:V";
    EXPECT_EQ(run.runToEnd(QString()).join(u'|'), "line:x\n|stopped");
}

TEST(LogReader, ClearLogOnStartUsesTwoConnectionsAndTheFirstEndsSilently)
{
    LogRun run(FS::transportThen("SERIAL", kClear) + FS::Script{FS::okay(), FS::close()});
    run.server.addScript(logcatScript("OKAYafter clear\n"));
    run.settings.clearLogOnStart = true;
    EXPECT_EQ(run.runToEnd().join(u'|'), "line:after clear\n|stopped");
    EXPECT_EQ(run.server.connectionCount(), 2);
    EXPECT_FALSE(run.reader.sentClearDevice());
}

// What a "FAIL" message means to the log reader, on whichever of its requests it comes.
TEST(LogReader, FailureMessagesBecomeDeviceNotFoundOrAnErrorWithCode2)
{
    const FS::Step transport = FS::expectRequest("host:transport:SERIAL");
    const QList<std::pair<FS::Script, QString>> cases = {
        {{transport, FS::fail("error: device not found")}, "notFound:logReader:2:error: device not found|stopped"},
        {{transport, FS::fail("DEVICE NOT FOUND")}, "notFound:logReader:2:DEVICE NOT FOUND|stopped"},
        // adb 29's wording for a missing serial does not contain "device not found".
        {{transport, FS::fail("device 'SERIAL' not found")}, "error:logReader:2:device 'SERIAL' not found|stopped"},
        {{transport, FS::fail("\xff")}, "error:logReader:2:|stopped"}, // a message that is not UTF-8 is empty
        {FS::transportThen("SERIAL", kLogcat) + FS::Script{FS::fail("more than one device")},
         "error:logReader:2:more than one device|stopped"},
        // Broken failure replies end in stopped only.
        {{transport, FS::reply("FAIL0000")}, "stopped"},
        {{transport, FS::reply("FAILzzzzdevice not found")}, "stopped"},
        {{transport, FS::reply("FAIL00ffdevice not found")}, "stopped"},
        {{transport, FS::reply("FAIL00")}, "stopped"},
        {{transport, FS::reply("okay")}, "stopped"},
    };
    for (const auto &[script, expected] : cases) {
        LogRun run(script + FS::Script{FS::close()});
        EXPECT_EQ(run.runToEnd().join(u'|'), expected);
        EXPECT_FALSE(run.reader.isConnecting());
    }
}

TEST(LogReader, AFailedClearIsReportedButItsConnectionEndIsNot)
{
    LogRun run(FS::transportThen(QStringLiteral("S"), kClear) + FS::Script{FS::fail("nope"), FS::close()});
    run.settings.clearLogOnStart = true;
    EXPECT_EQ(run.runToEnd(QStringLiteral("S")), QStringList{QStringLiteral("error:logReader:2:nope")});
    EXPECT_TRUE(run.reader.sentClearDevice());
}

TEST(LogReader, UnreachableServerReportsNotRunningThenStopped)
{
    LogRun run;
    run.settings.port = closedPort();
    EXPECT_EQ(run.runToEnd().join(u'|'), QStringLiteral("notRunning:%1|stopped").arg(ECONNREFUSED));
}

TEST(LogReader, StopEndsTheStreamWithOneStoppedAndTheReaderCanRunAgain)
{
    LogRun run(FS::transportThen(QStringLiteral("SERIAL"), kLogcat) + FS::Script{FS::reply("OKAYfirst\n")});
    run.server.addScript(logcatScript("OKAYsecond\n"));
    run.start();
    ASSERT_TRUE(waitUntil([&] { return run.rec.size() == 1; }, 5000));
    EXPECT_TRUE(run.reader.isConnected());
    run.reader.stop();
    run.reader.stop();
    ASSERT_TRUE(waitUntil([&] { return run.rec.size() == 2 && run.server.clientClosedCount() == 1; }, 5000));
    EXPECT_FALSE(run.reader.isConnected());

    run.reader.connect();
    ASSERT_TRUE(waitUntil([&] { return run.rec.size() == 4; }, 5000));
    EXPECT_EQ(run.rec.events().join(u'|'), "line:first\n|stopped|line:second\n|stopped");
}

TEST(LogReader, IsConnectedDuringConnectingAndCode7WhileConnectingIsNotNotRunning)
{
    LogRun run({FS::expectRequest(QStringLiteral("host:transport:SERIAL"))});
    run.start();
    EXPECT_TRUE(run.reader.isConnecting());
    EXPECT_FALSE(run.reader.socket()->isConnected());
    EXPECT_TRUE(run.reader.isConnected());

    // The peer's close (code 7) reaches a reader that is still connecting.
    run.reader.didDisconnect(
        AdbError{AsyncSocket::errorDomain, AsyncSocket::ClosedError, QStringLiteral("closed"), {}, {}});
    EXPECT_EQ(run.rec.events(), QStringList{QStringLiteral("stopped")});
    EXPECT_FALSE(run.reader.isConnecting());

    run.reader.connect();
    run.reader.didDisconnect(AdbError::posixError(ECONNREFUSED));
    EXPECT_EQ(run.rec.events().join(u'|'), QStringLiteral("stopped|notRunning:%1|stopped").arg(ECONNREFUSED));
}

TEST(LogReader, CloseAtEveryBytePositionEndsInStoppedWithTheWholeLinesSoFar)
{
    const QByteArray first = "OKAY";
    const QByteArray second = "OKAYab\ncd\n";
    for (qsizetype cut = 0; cut <= first.size() + second.size(); ++cut) {
        FS::Script script{FS::expectRequest(QStringLiteral("host:transport:SERIAL"))};
        if (cut < first.size())
            script += FS::Script{FS::reply(first.left(cut))};
        else
            script += FS::Script{FS::reply(first), FS::expectRequest(kLogcat), FS::reply(second.left(cut - 4))};
        LogRun run(script + FS::Script{FS::close()});
        const QString lines = cut >= 14 ? "line:ab\n|line:cd\n|" : cut >= 11 ? "line:ab\n|" : "";
        EXPECT_EQ(run.runToEnd().join(u'|'), lines + "stopped") << "cut at " << cut;
    }
}
