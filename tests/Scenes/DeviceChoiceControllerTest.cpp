// SPDX-License-Identifier: MIT
// Device choice without adb: the decision for each device list, the picker and its two buttons, model
// names arriving later, and the device list's failures.
#include "Scenes/DeviceChoiceController.h"

#include "Scenes/MainWindow.h"
#include "Session/LogDatasource.h"
#include "Session/ReconnectPolicy.h"
#include "support/LogCapture.h"

#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {

class DeviceChoiceControllerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }
    MainWindow window;
    LogDatasource datasource;
    ReconnectPolicy reconnect{nullptr};
    DeviceChoiceController devices{&window, &datasource, &reconnect};
    QSignalSpy chosen{&devices, &DeviceChoiceController::deviceChosen};
    LogCapture log;
};

} // namespace

// An unauthorized device alerts through the delegate: AppDelegateStateTest.
TEST_F(DeviceChoiceControllerTest, ALoneDeviceIsTakenAndNoneIsQuiet)
{
    devices.onDevicesConnected({});
    devices.onDevicesConnected({{"emu-A", "device", "Pixel_A", {}}});
    EXPECT_EQ(chosen.count(), 1);
    EXPECT_EQ(chosen.value(0).value(0).toString(), "emu-A");
    EXPECT_EQ(devices.devicePickerSheet(), nullptr);
    EXPECT_EQ(devices.titleForDevice("emu-A"), "Pixel_A - emu-A");
    EXPECT_EQ(devices.titleForDevice("gone"), "gone");
}

TEST_F(DeviceChoiceControllerTest, PickerListsTheDevicesInKeyOrderAndConnectsTheChosenOneOrNone)
{
    devices.onDevicesConnected({{"emu-B", "device", {}, "sdk_b"}, {"emu-A", "device", "Pixel_A", {}}});
    DevicePickerSheet *picker = devices.devicePickerSheet();
    ASSERT_TRUE(picker && picker->isVisible());
    EXPECT_EQ(picker->deviceTitles(), (QStringList{"Pixel_A - emu-A", "sdk_b - emu-B"}));
    // Cancel, or Escape: nothing chosen, and each says so in the diagnostic log.
    picker->cancelButton()->click();
    EXPECT_FALSE(picker->isVisible());
    devices.showDevicePicker();
    QTest::keyClick(picker, Qt::Key_Escape);
    EXPECT_FALSE(picker->isVisible());
    EXPECT_EQ(chosen.count(), 0);
    EXPECT_EQ(log.count("device picker cancelled"), 2);
    EXPECT_EQ(log.count("return Code: 0"), 2);

    devices.showDevicePicker();
    picker->setSelectedIndex(1);
    picker->connectButton()->click();
    EXPECT_FALSE(picker->isVisible());
    EXPECT_EQ(chosen.count(), 1);
    EXPECT_EQ(chosen.value(0).value(0).toString(), "emu-B");
    EXPECT_EQ(log.count("device picked: 1 (sdk_b - emu-B)"), 1);
    EXPECT_EQ(log.count("return Code: 1"), 1);
}

TEST_F(DeviceChoiceControllerTest, AModelNameRetitlesOnlyTheLoggedDevice)
{
    window.setWindowTitle("before");
    devices.onDevicesConnected({{"emu-A", "device", {}, {}}, {"emu-B", "device", {}, {}}});
    devices.onDeviceModel("emu-A", "Phone_A");
    EXPECT_EQ(window.windowTitle(), "before");
    datasource.setDeviceId("emu-B");
    devices.onDeviceModel("emu-B", "Tablet_B");
    // Id first, then the model: the reverse of the device title.
    EXPECT_EQ(window.windowTitle(), "emu-B - Tablet_B");
    EXPECT_EQ(devices.titleForDevice("emu-B"), "Tablet_B - emu-B");
}

TEST_F(DeviceChoiceControllerTest, ListFailuresReportNoDeviceOnlyWhenNotRetrying)
{
    QSignalSpy noDevice(&devices, &DeviceChoiceController::noDeviceFound);
    QSignalSpy adbDown(&devices, &DeviceChoiceController::adbNotReachable);
    const auto fail = [&](int type) {
        const int before = log.count("errorType:");
        devices.onDeviceListFailed(type); // re-posted: handled once the event loop runs
        EXPECT_TRUE(QTest::qWaitFor([&] { return log.count("errorType:") > before; }, 3000));
    };
    fail(1);
    EXPECT_EQ(noDevice.count(), 1);
    reconnect.setAutoReconnect(true);
    fail(1);
    fail(7);
    EXPECT_EQ(noDevice.count(), 1);
    EXPECT_EQ(adbDown.count(), 0);
    fail(0);
    EXPECT_EQ(adbDown.count(), 1);
}
