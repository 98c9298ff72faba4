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

struct SequenceCase
{
    const char *name;
    bool selectsTransport;
    bool readsFailure;
    QString serial;
    FS::Script script;
    QStringList expected;
};

class AdbRequestSocketTest : public FakeAdbServerTest, public ::testing::WithParamInterface<SequenceCase>
{};

const QString kProbe = QStringLiteral("shell:probe");

} // namespace

TEST_P(AdbRequestSocketTest, RunsTheSharedSequence)
{
    const SequenceCase &c = GetParam();
    FS::Script script = c.script;
    script.append(FS::close());
    server.addScript(script);
    ProbeReader reader(c.selectsTransport, c.readsFailure);
    reader.setConnectionSettings(server.connectionSettings());
    reader.setDeviceId(c.serial);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return server.allScriptsDone() && !reader.isConnected(); }, 5000));
    EXPECT_EQ(reader.events(), c.expected);
    QByteArray expectedBytes; // the framed requests of the script, in order
    for (const FS::Step &step : c.script)
        if (step.kind == FS::Step::Expect)
            expectedBytes += step.bytes;
    EXPECT_EQ(server.received(0), expectedBytes);
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, AdbRequestSocketTest,
    ::testing::Values(
        SequenceCase{"SerialSelectsItsTransport",
                     true,
                     false,
                     QStringLiteral("SER"),
                     FS::transportThen(QStringLiteral("SER"), kProbe) + FS::Script{FS::reply("OKAYa\nb\n")},
                     {QStringLiteral("accepted:11"), QStringLiteral("output:a\n"), QStringLiteral("output:b\n")}},
        SequenceCase{"NoSerialSelectsAnyTransport",
                     true,
                     false,
                     QString(),
                     FS::transportThen(QString(), kProbe) + FS::Script{FS::okay()},
                     {QStringLiteral("accepted:11")}},
        SequenceCase{"HostRequestGoesOutAtOnce",
                     false,
                     false,
                     QStringLiteral("SER"),
                     {FS::expectRequest(kProbe), FS::okay()},
                     {QStringLiteral("accepted:11")}},
        SequenceCase{"RefusedTransportEndsTheSequence",
                     true,
                     false,
                     QStringLiteral("S"),
                     {FS::expectRequest(QStringLiteral("host:transport:S")), FS::fail("gone")},
                     {QStringLiteral("notOkay:10:FAIL")}},
        SequenceCase{"RefusedRequest",
                     true,
                     false,
                     QStringLiteral("S"),
                     FS::transportThen(QStringLiteral("S"), kProbe) + FS::Script{FS::reply("nope")},
                     {QStringLiteral("notOkay:11:nope")}},
        SequenceCase{"FailureMessageIsReadWhenTheReaderAsks",
                     true,
                     true,
                     QStringLiteral("S"),
                     FS::transportThen(QStringLiteral("S"), kProbe) + FS::Script{FS::fail("device offline")},
                     {QStringLiteral("notOkay:11:FAIL"), QStringLiteral("failed:device offline")}},
        SequenceCase{"FailureMessageThatIsNotUtf8IsEmpty",
                     true,
                     true,
                     QStringLiteral("S"),
                     {FS::expectRequest(QStringLiteral("host:transport:S")), FS::fail("\xff")},
                     {QStringLiteral("notOkay:10:FAIL"), QStringLiteral("failed:")}}),
    [](const ::testing::TestParamInfo<SequenceCase> &param) { return std::string(param.param.name); });

TEST(AdbRequestSocket, AnUnknownTagGoesToItsHook)
{
    ProbeReader reader(true, false);
    reader.didRead("x", 99);
    EXPECT_EQ(reader.events(), QStringList{QStringLiteral("unknown:99")});
}
