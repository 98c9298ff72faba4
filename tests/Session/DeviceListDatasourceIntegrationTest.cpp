// SPDX-License-Identifier: MIT
// Device discovery against the real adb server with zero, one and two simulated devices.
#include "Session/DeviceListDatasource.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

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

// Without a device the fetch fails with code 1. Then the list in the server's line order, and one
// lookup after the other in that order; a new parse builds fresh entries without names, so both are
// looked up again, in the same order.
TEST_F(DeviceListIntegrationTest, DevicesAreListedAndTheirModelsLookedUpInListOrder)
{
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 1; }, 10000));
    EXPECT_EQ(events.events(), QStringList{QStringLiteral("failed:1")});

    const QString first = startDevice({"--model", "Model First"});
    const QString second = startDevice({"--model", "Model Second"});
    ASSERT_FALSE(first.isEmpty() || second.isEmpty());
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 4; }, 15000));
    const QList<DeviceEntry> listed = events.lists.value(0);
    ASSERT_EQ(listed.size(), 2);
    EXPECT_EQ(QSet<QString>({listed[0].id, listed[1].id}), QSet<QString>({first, second}));
    QStringList expected{"devices:" + listed[0].id + ',' + listed[1].id};
    for (const DeviceEntry &d : listed)
        expected << QStringLiteral("model:%1:Model %2").arg(d.id, d.id == first ? "First" : "Second");
    EXPECT_EQ(events.events().mid(1), expected);
    EXPECT_TRUE(waitUntil([&] { return datasource->lookupList().isEmpty(); }, 5000));

    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 7; }, 15000));
    EXPECT_EQ(events.events().mid(4), expected);
}
