// SPDX-License-Identifier: MIT
#include "Android/AdbProtocol.h"
#include "Android/DeviceListReader.h"
#include "Android/DeviceNameReader.h"
#include "support/AdbReaderRun.h"

#include <gtest/gtest.h>

namespace {

using FS = FakeAdbServer;
using ListRun = ReaderRun<DeviceListReader, DeviceListReaderRecorder>;
using NameRun = ReaderRun<DeviceNameReader, DeviceNameReaderRecorder>;

const QString kGetprop = QStringLiteral("shell:getprop ro.product.model");

FS::Script devicesScript(const QByteArray &replyBytes)
{
    return {FS::expectRequest(QStringLiteral("host:devices")), FS::reply(replyBytes), FS::close()};
}

} // namespace

TEST(DeviceListReader, DeliversThePayloadOrReportsNoDevice)
{
    const QList<QPair<QByteArray, QStringList>> cases = {
        {"OKAY" + AdbProtocol::lengthPrefixed("emulator-5554\tdevice\nX\n"),
         {QStringLiteral("devices:emulator-5554\tdevice\nX\n")}},
        {"OKAY0000", {QStringLiteral("failed:1")}},
        {"FAIL0005nope!", {}},                                      // logged only
        {"OKAYzzzz", {QStringLiteral("failed:1")}},                 // non-hex length reads as 0
        {"OKAY00ffshort", {}},                                      // length beyond what follows
        {"OKAY00", {}},                                             // truncated length
        {"OKAY0002\xff\xfe", {QStringLiteral("devices:<absent>")}}, // not UTF-8
        {"", {}},
    };
    for (const auto &[replyBytes, expected] : cases) {
        ListRun run(devicesScript(replyBytes));
        EXPECT_EQ(run.runToEnd(), expected) << replyBytes.toStdString();
        EXPECT_EQ(run.server.received(0), QByteArray("000chost:devices"));
    }
}

TEST(DeviceListReader, UnreachableServerReportsCode0)
{
    ListRun run;
    run.settings.port = closedPort();
    EXPECT_EQ(run.runToEnd(), QStringList{QStringLiteral("failed:0")});
    EXPECT_FALSE(run.reader.isConnecting());
}

TEST(DeviceNameReader, ReportsTheFirstNonEmptyLineOrNothing)
{
    const QList<QPair<QByteArray, QStringList>> cases = {
        {"OKAY\r\nPixel 7\r\nignored\n", {QStringLiteral("model:SER:Pixel 7")}},
        {"OKAY", {}},        // empty output
        {"FAIL0003bad", {}}, // a refused getprop is only logged
    };
    for (const auto &[replyBytes, expected] : cases) {
        NameRun run(FS::transportThen(QStringLiteral("SER"), kGetprop) +
                    FS::Script{FS::reply(replyBytes), FS::close()});
        EXPECT_EQ(run.runToEnd(QStringLiteral("SER")), expected) << replyBytes.toStdString();
    }
}

TEST(DeviceNameReader, ModelFromOutput)
{
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\nSM-G950F\n"), QStringLiteral("SM-G950F"));
    EXPECT_EQ(DeviceNameReader::modelFromOutput("A\xe2\x80\xa8"
                                                "B"),
              QStringLiteral("A"));
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\n\r\n"), std::nullopt);
    EXPECT_EQ(DeviceNameReader::modelFromOutput("\xff\n"), std::nullopt);
}

TEST(DeviceNameReader, AFailureMessageBecomesACode1ErrorForItsSerial)
{
    // No path of the reader reads a failure message today; the state is driven directly.
    NameRun run;
    run.reader.setDeviceId(QStringLiteral("SER"));
    run.reader.setDelegate(&run.rec);
    run.reader.didRead("device offline", DeviceNameReader::FailureMessageTag);
    EXPECT_EQ(run.rec.events(), QStringList{QStringLiteral("nameFailed:SER:1:device offline")});
}
