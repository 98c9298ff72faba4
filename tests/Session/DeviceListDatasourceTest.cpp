// SPDX-License-Identifier: MIT
#include "Session/DeviceListDatasource.h"
#include "Android/AdbProtocol.h"
#include "support/AdbReaderRun.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

namespace {

FakeAdbServer::Script getpropScript(const QString &serial, const QByteArray &output)
{
    return FakeAdbServer::transportThen(serial, QStringLiteral("shell:getprop ro.product.model")) +
           FakeAdbServer::Script{FakeAdbServer::reply(AdbProtocol::okayReply() + output), FakeAdbServer::close()};
}

FakeAdbServer::Script devicesScript(const QByteArray &payload)
{
    return {FakeAdbServer::expectRequest(QStringLiteral("host:devices")),
            FakeAdbServer::reply(AdbProtocol::okayReply() + AdbProtocol::lengthPrefixed(payload)),
            FakeAdbServer::close()};
}

class DeviceListDatasourceTest : public FakeAdbServerTest
{
protected:
    void SetUp() override
    {
        datasource = std::make_unique<DeviceListDatasource>();
        datasource->setConnectionSettings(server.connectionSettings());
        datasource->setDelegate(&rec);
    }
    void TearDown() override
    {
        datasource.reset();
        FakeAdbServerTest::TearDown();
    }

    DeviceListDatasourceRecorder rec;
    std::unique_ptr<DeviceListDatasource> datasource;
};

} // namespace

// "id/type/name/product" per entry, ";" between entries; "-" for an absent name or product.
QString parsed(const QString &list)
{
    QStringList out;
    for (const DeviceEntry &e : DeviceListDatasource::parseDeviceEntries(list))
        out << QStringList{e.id, e.type, e.name.value_or("-"), e.product.value_or("-")}.join(u'/');
    return out.join(u';');
}

TEST(DeviceListParsing, EntriesFromTheServersList)
{
    const QList<std::pair<QString, QString>> cases = {
        {"0123456789ABCDEF\tdevice\n", "0123456789ABCDEF/0123456789ABCDEF/-/-"}, // id and type are both the serial
        // Model and product fields in any order, the last one wins.
        {"emulator-5554   device product:sdk_x86 model:Android_SDK transport_id:1 model:Last\r\n"
         "R58M\tunauthorized usb:1-1 product:p:q\n",
         "emulator-5554/emulator-5554/Last/sdk_x86;R58M/R58M/-/p:q"},
        // Dash, error and empty lines are skipped, other odd lines kept.
        {"* daemon started successfully\n- waiting\nerror: x\n\n\r\nA device\u2028B\tdevice",
         "*/*/-/-;A/A/-/-;B/B/-/-"},
        {"  S1 device model:M", "/S1/M/-"}, // a leading blank gives an empty first field: the id
        {"", ""},
    };
    for (const auto &[list, expected] : cases)
        EXPECT_EQ(parsed(list), expected) << list.toStdString();
}

TEST_F(DeviceListDatasourceTest, ParsingTwiceQueuesEachUnnamedSerialOnce)
{
    // Every lookup connects to a server with no script: it ends without a callback, so the chain stalls.
    datasource->parseDeviceList(QStringLiteral("A\tdevice\nB\tdevice model:Bm\nC\tdevice\n"));
    datasource->parseDeviceList(QStringLiteral("C\tdevice\nA\tdevice\nD\tdevice\n"));
    EXPECT_EQ(datasource->lookupList(), (QStringList{QStringLiteral("A"), QStringLiteral("C"), QStringLiteral("D")}));
    EXPECT_EQ(datasource->deviceList().size(), 3);
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 2; }, 5000));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("devices:A,B,C"), QStringLiteral("devices:C,A,D")}));
}

// The list, then one lookup after the other in the list's order. A lookup without output stalls the
// chain; the failure reported for it moves on. A model for an unknown serial is still announced.
TEST_F(DeviceListDatasourceTest, FetchesTheListThenLooksUpModelsOneAtATimeInOrder)
{
    server.addScript(devicesScript("A\tdevice\nB\tdevice product:pb model:Bm\nC\tdevice\nD\tdevice\n"));
    server.addScript(getpropScript(QStringLiteral("A"), "\nModel A\n"));
    server.addScript(getpropScript(QStringLiteral("C"), ""));
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return server.allScriptsDone() && rec.size() == 2; }, 10000));
    EXPECT_EQ(datasource->lookupList(), (QStringList{QStringLiteral("C"), QStringLiteral("D")}));
    ASSERT_EQ(rec.lists.size(), 1);
    EXPECT_EQ(rec.lists[0][1], (DeviceEntry{"B", "B", QStringLiteral("Bm"), QStringLiteral("pb")}));
    EXPECT_FALSE(rec.lists[0][0].name.has_value()); // the announced list is a snapshot

    server.addScript(getpropScript(QStringLiteral("D"), "Model D\r\n"));
    datasource->deviceNameFailedWithError(AdbError::logReaderError(1, QStringLiteral("device offline")),
                                          QStringLiteral("C"));
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 3; }, 5000));
    // The model is announced before the worker drops the serial from the list.
    EXPECT_TRUE(waitUntil([&] { return datasource->lookupList().isEmpty(); }, 5000));
    datasource->deviceNameReceived(QStringLiteral("Ghost"), QStringLiteral("Z"));
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 4; }, 5000));
    EXPECT_EQ(rec.events(), (QStringList{"devices:A,B,C,D", "model:A:Model A", "model:D:Model D", "model:Z:Ghost"}));
    for (QThread *t : rec.threads())
        EXPECT_EQ(t, QCoreApplication::instance()->thread());
    QStringList names;
    for (const DeviceEntry &e : datasource->deviceList())
        names << e.name.value_or("-");
    EXPECT_EQ(names, (QStringList{"Model A", "Bm", "-", "Model D"}));
}

TEST_F(DeviceListDatasourceTest, AnEmptyListOrAnUnreachableServerFailsWithItsCodeAndAnnouncesNothing)
{
    server.addScript(devicesScript(QByteArray()));
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 1; }, 5000));
    // Passed on directly, on the fetch's worker thread.
    EXPECT_NE(rec.threads().first(), QCoreApplication::instance()->thread());
    AdbConnectionSettings settings = server.connectionSettings();
    settings.port = closedPort();
    datasource->setConnectionSettings(settings);
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return rec.size() == 2; }, 5000));
    EXPECT_EQ(rec.events(), (QStringList{QStringLiteral("failed:1"), QStringLiteral("failed:0")}));
    EXPECT_TRUE(datasource->deviceList().isEmpty());
}

TEST_F(DeviceListDatasourceTest, RepeatedFetchesAndDestructionWhileBusyAreSafe)
{
    for (int i = 0; i < 5; ++i)
        server.addScript(devicesScript("A\tdevice\n"));
    for (int i = 0; i < 5; ++i)
        datasource->loadDeviceList();
    // Only fetches that were not replaced report; destruction mid-way must join every worker.
    ASSERT_TRUE(waitUntil([&] { return rec.size() >= 1; }, 5000));
    datasource.reset();
    const qsizetype before = rec.size();
    QCoreApplication::sendPostedEvents(); // announcements queued before the end are dropped with it
    EXPECT_EQ(rec.size(), before);
}
