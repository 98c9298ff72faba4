// SPDX-License-Identifier: MIT
#include "Session/ConnectionStatus.h"

#include <QLocale>

#include <gtest/gtest.h>

using namespace ConnectionStatus;

// The device title prefers the name, then the product, then the id; the model title has the reverse order.
TEST(ConnectionStatusTest, DeviceModelAndOfflineTitles)
{
    EXPECT_EQ(getDeviceTitle("emulator-5554", "Pixel 7", "panther"), "Pixel 7 - emulator-5554");
    EXPECT_EQ(getDeviceTitle("emulator-5554", QString(), "panther"), "panther - emulator-5554");
    EXPECT_EQ(getDeviceTitle("emulator-5554", "", ""), "emulator-5554");
    EXPECT_EQ(deviceModelTitle("R58M123", "SM-G970F"), "R58M123 - SM-G970F");

    EXPECT_EQ(offlineTitle(QString(), true), "No devices connected");
    EXPECT_EQ(offlineTitle(QString(), false), "No devices connected");
    EXPECT_EQ(offlineTitle("Pixel - 42", true), "Pixel - 42 [AWAY - RETRYING]");
    EXPECT_EQ(offlineTitle("Pixel - 42", false), "Pixel - 42 [OFFLINE]");
}

TEST(ConnectionStatusTest, ConnectButtonShowsStopWhileStreamingOrRetrying)
{
    EXPECT_EQ(connectButtonLabel(connectButton(false, false)), "Run");
    EXPECT_EQ(connectButtonLabel(connectButton(true, false)), "Stop");
    EXPECT_EQ(connectButtonLabel(connectButton(false, true)), "Stop");
    EXPECT_EQ(connectButtonLabel(connectButton(false, true, true)), "Cancel"); // retrying an absent device
    EXPECT_EQ(connectButtonLabel(connectButton(false, false, true)), "Run");
}

TEST(ConnectionStatusTest, StatusLine)
{
    EXPECT_EQ(statusText(false, 0, 0, false, "1.2"), "No Data       v(1.2)");
    EXPECT_EQ(statusText(false, 0, 17, true, "1.2"), "No Data       v(1.2)");
    EXPECT_EQ(statusText(false, 17, 17, true, "1.2"), "Viewing: 17");
    EXPECT_EQ(statusText(true, 0, 0, true, "1.2"), "No Data       v(1.2)");
    // A filter hiding everything still reports the totals.
    EXPECT_EQ(statusText(true, 0, 250, false, "1.2"), "Viewing 0 of 250");
    EXPECT_EQ(statusText(true, 3, 250, true, "1.2"), "Viewing 3 of 250+");
    // Large counts are grouped so a million reads at a glance; the C locale reads as English.
    const QLocale before;
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(statusText(false, 1234567, 1234567, true, "1.2"), "Viewing: 1,234,567");
    EXPECT_EQ(statusText(true, 55000, 1000000, false, "1.2"), "Viewing 55,000 of 1,000,000");
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(statusText(false, 55000, 55000, true, "1.2"), "Viewing: 55.000");
    QLocale::setDefault(before);
}
