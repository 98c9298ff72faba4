// SPDX-License-Identifier: MIT
#include "Android/DeviceListReader.h"
#include "Android/DeviceNameReader.h"
#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

#include <QTcpServer>
#include <QTest>

namespace {

class DeviceReadersTest : public FakeAdbServerTest
{
protected:
    template <class Reader> void runToEnd(Reader &reader)
    {
        reader.connect();
        EXPECT_TRUE(waitUntil([&] { return server.allScriptsDone() && !reader.isConnected(); }, 5000));
    }
};

FakeAdbServer::Script devicesScript(const QByteArray &replyBytes)
{
    return {FakeAdbServer::expectRequest(QStringLiteral("host:devices")), FakeAdbServer::reply(replyBytes),
            FakeAdbServer::close()};
}

} // namespace

TEST_F(DeviceReadersTest, DeviceListDeliversThePayload)
{
    server.addScript(devicesScript("OKAY0017emulator-5554\tdevice\nX\n"));
    DeviceListReaderRecorder rec;
    DeviceListReader reader;
    reader.setDelegate(&rec);
    runToEnd(reader);
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("devices:emulator-5554\tdevice\nX\n")});
    EXPECT_EQ(server.received(0), QByteArray("000chost:devices"));
}

TEST_F(DeviceReadersTest, DeviceListWithZeroLengthReportsNoDevice)
{
    server.addScript(devicesScript("OKAY0000"));
    DeviceListReaderRecorder rec;
    DeviceListReader reader;
    reader.setDelegate(&rec);
    runToEnd(reader);
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("failed:1")});
}

TEST_F(DeviceReadersTest, DeviceListFailuresAndBrokenReplies)
{
    const QList<QPair<QByteArray, QStringList>> cases = {
        {"FAIL0005nope!", {}},                                 // logged only
        {"OKAYzzzz", {QStringLiteral("failed:1")}},           // non-hex length reads as 0
        {"OKAY00ffshort", {}},                                 // length beyond what follows
        {"OKAY00", {}},                                        // truncated length
        {"OKAY0002\xff\xfe", {QStringLiteral("devices:<absent>")}}, // not UTF-8
        {"", {}},
    };
    for (const auto &[replyBytes, expected] : cases) {
        FakeAdbServer local;
        local.useForClient();
        local.addScript(devicesScript(replyBytes));
        DeviceListReaderRecorder rec;
        DeviceListReader reader;
        reader.setDelegate(&rec);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return local.allScriptsDone() && !reader.isConnected(); }, 5000));
        EXPECT_FALSE(waitUntil([&] { return rec.size() > expected.size(); }, 20));
        EXPECT_EQ(rec.events(), expected) << replyBytes.toStdString();
    }
}

TEST_F(DeviceReadersTest, DeviceListUnreachableServerReportsCode0)
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    FakeAdbServer::setClientSetting(QStringLiteral("adbPort"), QString::number(port));
    DeviceListReaderRecorder rec;
    DeviceListReader reader;
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 5000));
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("failed:0")});
    EXPECT_FALSE(reader.isConnecting());
}

TEST_F(DeviceReadersTest, DeviceListCloseAtEveryBytePosition)
{
    const QByteArray full = "OKAY0004ab\n\n";
    for (qsizetype cut = 0; cut <= full.size(); ++cut) {
        FakeAdbServer local;
        local.useForClient();
        local.addScript(devicesScript(full.left(cut)));
        DeviceListReaderRecorder rec;
        DeviceListReader reader;
        reader.setDelegate(&rec);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return local.allScriptsDone() && !reader.isConnected(); }, 5000)) << cut;
        const QStringList expected = cut == full.size() ? QStringList{QStringLiteral("devices:ab\n\n")} : QStringList();
        EXPECT_EQ(rec.events(), expected) << "cut at " << cut;
    }
}

TEST_F(DeviceReadersTest, DeviceNameReadsTheFirstNonEmptyLine)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:SER")), FakeAdbServer::reply("OKAY"),
                      FakeAdbServer::expectRequest(QStringLiteral("shell:getprop ro.product.model")),
                      FakeAdbServer::reply("OKAY\r\nPixel 7\r\nignored\n"), FakeAdbServer::close()});
    DeviceNameReaderRecorder rec;
    DeviceNameReader reader;
    reader.setDeviceId(QStringLiteral("SER"));
    reader.setDelegate(&rec);
    reader.connect();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 5000));
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("model:SER:Pixel 7")});
}

TEST_F(DeviceReadersTest, DeviceNameModelFromOutput)
{
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\nSM-G950F\n"), QStringLiteral("SM-G950F"));
    EXPECT_EQ(DeviceNameReader::modelFromOutput("A\xe2\x80\xa8" "B"), QStringLiteral("A"));
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\n\r\n"), std::nullopt);
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\xff\n"), std::nullopt);
}

TEST_F(DeviceReadersTest, DeviceNameNotOkayIsOnlyLoggedAndAFailureMessageBecomesCode1Error)
{
    server.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport-any")),
                      FakeAdbServer::reply("FAIL"), FakeAdbServer::close()});
    DeviceNameReaderRecorder rec;
    DeviceNameReader reader;
    reader.setDelegate(&rec);
    runToEnd(reader);
    // A non-OKAY status is only logged: the failure message is never read on this path.
    EXPECT_EQ(rec.events(), QStringList());

    // The failure-message state itself, driven directly.
    reader.setDeviceId(QStringLiteral("SER"));
    reader.didRead("device offline", DeviceNameReader::FailureMessageTag);
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("nameFailed:SER:1:device offline")});
}

TEST_F(DeviceReadersTest, DeviceNameEmptyOutputOrRefusedGetpropGivesNoCallback)
{
    for (const QByteArray &second : {QByteArray("OKAY"), QByteArray("FAIL0003bad")}) {
        FakeAdbServer local;
        local.useForClient();
        local.addScript({FakeAdbServer::expectRequest(QStringLiteral("host:transport:S")), FakeAdbServer::reply("OKAY"),
                         FakeAdbServer::expectRequest(QStringLiteral("shell:getprop ro.product.model")),
                         FakeAdbServer::reply(second), FakeAdbServer::close()});
        DeviceNameReaderRecorder rec;
        DeviceNameReader reader;
        reader.setDeviceId(QStringLiteral("S"));
        reader.setDelegate(&rec);
        reader.connect();
        ASSERT_TRUE(waitUntil([&] { return local.allScriptsDone() && !reader.isConnected(); }, 5000));
        EXPECT_EQ(rec.events(), QStringList());
    }
}
