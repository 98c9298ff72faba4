// SPDX-License-Identifier: MIT
// Device discovery against the real adb server with zero, one and two simulated devices.
#include "Session/DeviceListDatasource.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

#include <QCoreApplication>

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

TEST_F(DeviceListIntegrationTest, OneDeviceIsListedAndItsModelLookedUp)
{
    const QString serial = startDevice({QStringLiteral("--model"), QStringLiteral("Quill One")});
    ASSERT_FALSE(serial.isEmpty());
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 2; }, 10000));
    EXPECT_EQ(events.events(),
              (QStringList{QStringLiteral("devices:") + serial, QStringLiteral("model:%1:Quill One").arg(serial)}));
    for (QThread *t : events.threads())
        EXPECT_EQ(t, QCoreApplication::instance()->thread());
    ASSERT_EQ(events.lists.size(), 1);
    EXPECT_EQ(events.lists[0].value(0).type, serial); // the serial again, not the state word
    EXPECT_TRUE(waitUntil([&] { return datasource->lookupList().isEmpty(); }, 5000));
    EXPECT_EQ(datasource->deviceList().value(0).name, QStringLiteral("Quill One"));
}

TEST_F(DeviceListIntegrationTest, TwoDevicesAreLookedUpOneAfterTheOtherInListOrder)
{
    const QString first = startDevice({QStringLiteral("--model"), QStringLiteral("Model First")});
    const QString second = startDevice({QStringLiteral("--model"), QStringLiteral("Model Second")});
    ASSERT_FALSE(first.isEmpty());
    ASSERT_FALSE(second.isEmpty());
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 3; }, 15000));
    const QStringList got = events.events();
    // Lookups follow the server's line order.
    const QList<DeviceEntry> listed = events.lists.value(0);
    ASSERT_EQ(listed.size(), 2);
    QStringList ids{listed[0].id, listed[1].id};
    ids.sort();
    QStringList started{first, second};
    started.sort();
    EXPECT_EQ(ids, started);
    auto modelOf = [&](const QString &s) {
        return s == first ? QStringLiteral("Model First") : QStringLiteral("Model Second");
    };
    EXPECT_EQ(got[1], QStringLiteral("model:%1:%2").arg(listed[0].id, modelOf(listed[0].id)));
    EXPECT_EQ(got[2], QStringLiteral("model:%1:%2").arg(listed[1].id, modelOf(listed[1].id)));

    // A new parse builds fresh entries without names, so both are looked up again, in the same order.
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 6; }, 15000));
    EXPECT_EQ(events.events().mid(3), got);
    EXPECT_TRUE(waitUntil([&] { return datasource->lookupList().isEmpty(); }, 5000));
}

TEST_F(DeviceListIntegrationTest, ServerNotRunningFailsWithCode0)
{
    AdbConnectionSettings settings = env().connectionSettings();
    settings.port = 1; // nothing listens there
    datasource->setConnectionSettings(settings);
    datasource->loadDeviceList();
    ASSERT_TRUE(waitUntil([&] { return events.size() == 1; }, 10000));
    EXPECT_EQ(events.events(), QStringList{QStringLiteral("failed:0")});
    EXPECT_NE(events.threads().value(0), QCoreApplication::instance()->thread());
}
