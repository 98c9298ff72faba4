// SPDX-License-Identifier: MIT
#include "Android/PidReader.h"
#include "support/AdbReaderRun.h"

#include <gtest/gtest.h>

namespace {

using FS = FakeAdbServer;
using PidRun = ReaderRun<PidReader, PidReaderRecorder>;

const QByteArray kPs = "USER PID PPID VSZ RSS WCHAN ADDR S NAME\n"
                       "root 1 0 1 1 0 0 S init\r\n"
                       "u0_a1 1234 1 1 1 0 0 S com.example.app\n";

} // namespace

TEST(PidReader, HandsOverTheWholeOutputOfItsPsCommandOnce)
{
    struct Case
    {
        bool addDashArg;
        QString serial;
        QByteArray reply;
        QStringList expected;
    };
    const QList<Case> cases = {
        {true, QStringLiteral("SERIAL"), "OKAY" + kPs, {QStringLiteral("pids:") + QString::fromLatin1(kPs)}},
        // Only whole lines are gathered.
        {false, QString(), "OKAYa\nb\nunterminated", {QStringLiteral("pids:a\nb\n")}},
        // A device's complaint is output like any other; the owner decides.
        {true, QStringLiteral("SERIAL"), "OKAYbad pid '-A'\n", {QStringLiteral("pids:bad pid '-A'\n")}},
        {true, QStringLiteral("SERIAL"), "OKAYok\n\xfe\n", {QStringLiteral("pids:<absent>")}},
    };
    for (const Case &c : cases) {
        const QString request = c.addDashArg ? QStringLiteral("shell:ps -A") : QStringLiteral("shell:ps");
        PidRun run(FS::transportThen(c.serial, request) + FS::Script{FS::reply(c.reply), FS::close()});
        run.reader.setAddDashArg(c.addDashArg);
        EXPECT_EQ(run.runToEnd(c.serial), c.expected) << c.reply.toStdString();
        EXPECT_TRUE(run.server.received(0).endsWith(c.addDashArg ? "000bshell:ps -A" : "0008shell:ps"));
    }
}

TEST(PidReader, ARefusedTransportStopsTheReaderAndReportsTheFailure)
{
    PidRun run({FS::expectRequest(QStringLiteral("host:transport:SERIAL")), FS::fail("device offline")});
    run.start();
    // The server keeps the connection open: only the reader's stop() closes it.
    ASSERT_TRUE(waitUntil([&] { return run.server.clientClosedCount() == 1 && !run.reader.isConnected(); }, 5000));
    EXPECT_EQ(run.rec.events(), QStringList{QStringLiteral("pidFailed:ps ended without output")});
}

TEST(PidReader, AnUnknownReadStateStopsTheReader)
{
    PidRun run(FS::transportThen(QStringLiteral("SERIAL"), QStringLiteral("shell:ps -A")));
    run.start();
    ASSERT_TRUE(waitUntil([&] { return run.server.allScriptsDone(); }, 5000));
    run.reader.didRead("x", 5);
    ASSERT_TRUE(waitUntil([&] { return run.server.clientClosedCount() == 1; }, 5000));
}

TEST(PidReader, CloseAtEveryBytePositionNeverReportsAFragment)
{
    const QByteArray output = "OKAYp1\np2\n";
    for (qsizetype cut = 0; cut <= 4 + output.size(); ++cut) {
        FS::Script script{FS::expectRequest(QStringLiteral("host:transport:SERIAL"))};
        if (cut < 4)
            script += FS::Script{FS::reply(QByteArray("OKAY").left(cut))};
        else
            script += FS::Script{FS::okay(), FS::expectRequest(QStringLiteral("shell:ps -A")),
                                 FS::reply(output.left(cut - 4))};
        PidRun run(script + FS::Script{FS::close()});
        QStringList expected;
        if (cut >= 4 + 10)
            expected.append(QStringLiteral("pids:p1\np2\n"));
        else if (cut >= 4 + 7)
            expected.append(QStringLiteral("pids:p1\n"));
        else
            expected.append(QStringLiteral("pidFailed:ps ended without output"));
        EXPECT_EQ(run.runToEnd(), expected) << "cut at " << cut;
    }
}
