// SPDX-License-Identifier: MIT
#include "Android/PidReader.h"
#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

#include <QTest>

namespace {

class PidReaderTest : public FakeAdbServerTest
{
protected:
    // Runs until the server's scripts are played and the reader's connection has ended.
    QStringList run(bool addDashArg, const QString &serial = QStringLiteral("SERIAL"))
    {
        reader.setAddDashArg(addDashArg);
        reader.setDeviceId(serial);
        reader.setDelegate(&rec);
        reader.connect();
        EXPECT_TRUE(waitUntil([&] { return server.allScriptsDone() && !reader.isConnected(); }, 5000));
        EXPECT_FALSE(waitUntil([&] { return rec.size() > 1; }, 100));
        return rec.events();
    }

    PidReaderRecorder rec;
    PidReader reader;
};

const QByteArray kPs = "USER PID PPID VSZ RSS WCHAN ADDR S NAME\n"
                       "root 1 0 1 1 0 0 S init\r\n"
                       "u0_a1 1234 1 1 1 0 0 S com.example.app\n";

} // namespace

TEST_F(PidReaderTest, GathersTheWholeOutputOfPsDashA)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(QStringLiteral("shell:ps -A")),
                      FakeAdbServer::reply("OKAY" + kPs), FakeAdbServer::close()});
    EXPECT_EQ(run(true), QStringList{QStringLiteral("pids:") + QString::fromLatin1(kPs)});
    EXPECT_EQ(server.received(0).mid(25), QByteArray("000bshell:ps -A"));
}

TEST_F(PidReaderTest, WithoutDashArgSendsPlainPsAndDropsALastLineWithoutLineFeed)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport-any")), FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::expectRequest(QStringLiteral("shell:ps")),
                      FakeAdbServer::reply("OKAYa\nb\nunterminated"), FakeAdbServer::close()});
    EXPECT_EQ(run(false, QString()), QStringList{QStringLiteral("pids:a\nb\n")});
    EXPECT_TRUE(server.received(0).endsWith("0008shell:ps"));
}

TEST_F(PidReaderTest, ErrorTextFromTheDeviceIsOutputLikeAnyOther)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(QStringLiteral("shell:ps -A")),
                      FakeAdbServer::reply("OKAYbad pid '-A'\n"), FakeAdbServer::close()});
    EXPECT_EQ(run(true), QStringList{QStringLiteral("pids:bad pid '-A'\n")});
}

TEST_F(PidReaderTest, NoOutputFailureOrInvalidUtf8)
{
    // No output at all: no callback.
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(QStringLiteral("shell:ps -A")),
                      FakeAdbServer::reply("OKAY"), FakeAdbServer::close()});
    EXPECT_EQ(run(true), QStringList());

    // Transport refused: the reader stops; still no callback, and pidFailedWithError is never used.
    FakeAdbServer failing;
    failing.useForClient();
    failing.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                       FakeAdbServer::fail("device offline")});
    PidReaderRecorder r;
    PidReader pr;
    pr.setDeviceId(QStringLiteral("SERIAL"));
    pr.setDelegate(&r);
    pr.connect();
    ASSERT_TRUE(waitUntil([&] { return failing.clientClosedCount() == 1; }, 5000)); // closed by stop()
    EXPECT_FALSE(waitUntil([&] { return r.size() > 0; }, 100));

    FakeAdbServer invalid;
    invalid.useForClient();
    invalid.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL")),
                       FakeAdbServer::reply("OKAY"), FakeAdbServer::expectRequest(QStringLiteral("shell:ps -A")),
                       FakeAdbServer::reply("OKAYok\n\xfe\n"), FakeAdbServer::close()});
    PidReaderRecorder r2;
    PidReader pr2;
    pr2.setDeviceId(QStringLiteral("SERIAL"));
    pr2.setDelegate(&r2);
    pr2.connect();
    ASSERT_TRUE(waitUntil([&] { return r2.size() == 1; }, 5000));
    EXPECT_EQ(r2.events(), QStringList{QStringLiteral("pids:<absent>")});
}

TEST_F(PidReaderTest, CloseAtEveryBytePositionNeverReportsAFragment)
{
    const QByteArray output = "OKAYp1\np2\n";
    for (qsizetype cut = 0; cut <= 4 + output.size(); ++cut) {
        FakeAdbServer local;
        local.useForClient();
        FakeAdbServer::Script script{FakeAdbServer::expectRequest(QStringLiteral("host:transport:SERIAL"))};
        if (cut < 4) {
            script.append(FakeAdbServer::reply(QByteArray("OKAY").left(cut)));
        } else {
            script.append(FakeAdbServer::reply("OKAY"));
            script.append(FakeAdbServer::expectRequest(QStringLiteral("shell:ps -A")));
            script.append(FakeAdbServer::reply(output.left(cut - 4)));
        }
        script.append(FakeAdbServer::close());
        local.addScript(script);
        PidReaderRecorder r;
        PidReader pr;
        pr.setDeviceId(QStringLiteral("SERIAL"));
        pr.setDelegate(&r);
        pr.connect();
        ASSERT_TRUE(waitUntil([&] { return local.allScriptsDone() && !pr.isConnected(); }, 5000)) << cut;
        EXPECT_FALSE(waitUntil([&] { return r.size() > 1; }, 20));
        QStringList expected;
        if (cut >= 4 + 10)
            expected.append(QStringLiteral("pids:p1\np2\n"));
        else if (cut >= 4 + 7)
            expected.append(QStringLiteral("pids:p1\n"));
        EXPECT_EQ(r.events(), expected) << "cut at " << cut;
    }
}
