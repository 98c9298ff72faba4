// SPDX-License-Identifier: MIT
#include "Android/AdbRequestSocket.h"
#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

namespace {

using FS = FakeAdbServer;

// A reader that records each hook of the shared sequence.
class ProbeReader : public AdbRequestSocket, public AdbEventLog
{
public:
    enum Tag : long { TransportTag = 10, ReplyTag = 11, FailureLengthTag = 12, FailureMessageTag = 13, OutputTag = 14 };

    ProbeReader(bool selectsTransport, bool readsFailure)
        : AdbRequestSocket({.transportReply = selectsTransport ? long(TransportTag) : -1L,
                            .requestReplies = {ReplyTag},
                            .failureLength = FailureLengthTag,
                            .failureMessage = FailureMessageTag}),
          m_readsFailure(readsFailure)
    {
    }
    using AdbRequestSocket::didRead;

protected:
    void startRequest() override { sendRequest(QStringLiteral("shell:probe"), ReplyTag); }
    void requestAccepted(long tag) override
    {
        add(QStringLiteral("accepted:%1").arg(tag));
        readWithTag(OutputTag);
    }
    bool readOwn(QByteArrayView data, long tag) override
    {
        if (tag != OutputTag)
            return false;
        add(QStringLiteral("output:") + QString::fromLatin1(data));
        readWithTag(OutputTag);
        return true;
    }
    void replyNotOkay(QByteArrayView reply, long tag) override
    {
        add(QStringLiteral("notOkay:%1:%2").arg(tag).arg(QString::fromLatin1(reply)));
        if (m_readsFailure)
            readFailure();
    }
    void failed(const QString &message) override { add(QStringLiteral("failed:") + message); }
    void unknownReadState(long tag) override { add(QStringLiteral("unknown:%1").arg(tag)); }

private:
    bool m_readsFailure;
};

const QString kProbe = QStringLiteral("shell:probe");

} // namespace

TEST(AdbRequestSocket, RunsTheSharedSequence)
{
    const struct
    {
        bool selectsTransport, readsFailure;
        QString serial;
        FS::Script script;
        QString expected;
    } cases[] = {
        {true, false, "SER", FS::transportThen("SER", kProbe) + FS::Script{FS::reply("OKAYa\nb\n")},
         "accepted:11|output:a\n|output:b\n"},
        {true, false, QString(), FS::transportThen(QString(), kProbe) + FS::Script{FS::okay()}, "accepted:11"},
        {false, false, "SER", {FS::expectRequest(kProbe), FS::okay()}, "accepted:11"}, // a host request goes out at once
        {true, false, "S", {FS::expectRequest("host:transport:S"), FS::fail("gone")}, "notOkay:10:FAIL"},
        {true, false, "S", FS::transportThen("S", kProbe) + FS::Script{FS::reply("nope")}, "notOkay:11:nope"},
        // The failure message is read when the reader asks for it; one that is not UTF-8 is empty.
        {true, true, "S", FS::transportThen("S", kProbe) + FS::Script{FS::fail("device offline")},
         "notOkay:11:FAIL|failed:device offline"},
        {true, true, "S", {FS::expectRequest("host:transport:S"), FS::fail("\xff")}, "notOkay:10:FAIL|failed:"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.expected.toStdString());
        FakeAdbServer server;
        server.addScript(c.script + FS::Script{FS::close()});
        ProbeReader reader(c.selectsTransport, c.readsFailure);
        reader.setConnectionSettings(server.connectionSettings());
        reader.setDeviceId(c.serial);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return server.allScriptsDone() && !reader.isConnected(); }, 5000));
        EXPECT_EQ(reader.events().join(u'|'), c.expected);
        QByteArray expectedBytes; // the framed requests of the script, in order
        for (const FS::Step &step : c.script)
            if (step.kind == FS::Step::Expect)
                expectedBytes += step.bytes;
        EXPECT_EQ(server.received(0), expectedBytes);
        EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join(u'\n').toStdString();
    }
}

TEST(AdbRequestSocket, AnUnknownTagGoesToItsHook)
{
    ProbeReader reader(true, false);
    reader.didRead("x", 99);
    EXPECT_EQ(reader.events(), QStringList{"unknown:99"});
}
