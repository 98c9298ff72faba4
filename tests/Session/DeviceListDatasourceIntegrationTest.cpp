// SPDX-License-Identifier: MIT
// Device discovery against the real adb server with zero, one and two simulated devices.
#include "Session/DeviceListDatasource.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

#include <QCoreApplication>
#include <QSet>

namespace {

class DeviceListIntegrationTest : public AdbTest
{
protected:
    void SetUp() override
    {
        AdbTest::SetUp();
        datasource = std::make_unique<DeviceListDatasource>();
        datasource->setConnectionSettings(env().connectionSettings());
        datasource->setDelegate(&events);
    }
    void TearDown() override
    {
        datasource.reset();
        AdbTest::TearDown();
    }
    DeviceListDatasourceRecorder events;
    std::unique_ptr<DeviceListDatasource> datasource;
};

} // namespace

TEST_F(DeviceListIntegrationTest, NoDeviceFailsWithCode1)
{
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 1; }, 10000));
    EXPECT_EQ(events.events(), QStringList{QStringLiteral("failed:1")});
    EXPECT_TRUE(datasource->deviceList().isEmpty());
}

// The list in the server's line order, then one lookup after the other in that order.
TEST_F(DeviceListIntegrationTest, DevicesAreListedAndTheirModelsLookedUpInListOrder)
{
    const QString first = startDevice({"--model", "Model First"});
    const QString second = startDevice({"--model", "Model Second"});
    ASSERT_FALSE(first.isEmpty() || second.isEmpty());
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 3; }, 15000));
    const QList<DeviceEntry> listed = events.lists.value(0);
    ASSERT_EQ(listed.size(), 2);
    QStringList expected{"devices:" + listed[0].id + ',' + listed[1].id};
    for (const DeviceEntry &d : listed) {
        EXPECT_EQ(d.type, d.id); // the serial again, not the state word
        expected << QStringLiteral("model:%1:Model %2").arg(d.id, d.id == first ? "First" : "Second");
    }
    EXPECT_EQ(QSet<QString>({listed[0].id, listed[1].id}), QSet<QString>({first, second}));
    const QStringList got = events.events();
    EXPECT_EQ(got, expected);
    for (QThread *t : events.threads())
        EXPECT_EQ(t, QCoreApplication::instance()->thread());
    EXPECT_TRUE(waitUntil([&] { return datasource->lookupList().isEmpty(); }, 5000));
    EXPECT_EQ(datasource->deviceList().value(0).name, "Model " + QString(listed[0].id == first ? "First" : "Second"));

    // A new parse builds fresh entries without names, so both are looked up again, in the same order.
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 6; }, 15000));
    EXPECT_EQ(events.events().mid(3), got);
}
