// SPDX-License-Identifier: MIT
#include "Session/ReconnectPolicy.h"
#include "support/ManualTime.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace {

struct ReconnectPolicyTest : ::testing::Test
{
    ReconnectPolicyTest()
    {
        auto owned = std::make_unique<ManualTimer>();
        timer = owned.get();
        policy = std::make_unique<ReconnectPolicy>(std::move(owned));
    }
    ManualTimer *timer = nullptr;
    std::unique_ptr<ReconnectPolicy> policy;
};

} // namespace

TEST_F(ReconnectPolicyTest, FirstStreamAlwaysCountsAsDifferentDevice)
{
    EXPECT_TRUE(policy->isDifferentDevice("A"));
    policy->streamStarted("A", "Pixel - A");
    EXPECT_FALSE(policy->isDifferentDevice("A"));
    EXPECT_TRUE(policy->isDifferentDevice("B"));
    EXPECT_TRUE(policy->autoReconnect());
    EXPECT_EQ(policy->lastDeviceConnectedTitle(), "Pixel - A");
    policy->forgetLastDevice();
    EXPECT_TRUE(policy->isDifferentDevice("A"));
    EXPECT_TRUE(policy->lastDeviceConnectedTitle().isNull());
}

TEST_F(ReconnectPolicyTest, TimerTicksEveryFiveSecondsOnlyWhileRetryingAndAStreamStopsIt)
{
    QSignalSpy due(policy.get(), &ReconnectPolicy::reconnectDue);
    policy->streamStarted("A", "A");
    policy->startReconnectTimer();
    EXPECT_EQ(timer->lastInterval, std::chrono::milliseconds(5000));
    timer->fire();
    timer->fire();
    EXPECT_EQ(due.count(), 2);
    // The user pressed Stop while retrying: ticks that still arrive do nothing.
    policy->setAutoReconnect(false);
    timer->fire();
    EXPECT_EQ(due.count(), 2);

    policy->startReconnectTimer();
    EXPECT_TRUE(policy->isTimerRunning());
    policy->streamStarted("A", "A");
    EXPECT_FALSE(policy->isTimerRunning());
    policy->startReconnectTimer();
    policy->stopReconnectTimer();
    policy->stopReconnectTimer(); // idempotent
    EXPECT_FALSE(policy->isTimerRunning());
}

TEST_F(ReconnectPolicyTest, ChoosesTheOnlyDeviceOrAsks)
{
    EXPECT_EQ(policy->chooseDevice({}).kind, DeviceDecision::NoDevices);
    const DeviceDecision one = policy->chooseDevice({{"A", "A"}});
    EXPECT_EQ(one.kind, DeviceDecision::Connect);
    EXPECT_EQ(one.deviceId, "A");
    EXPECT_EQ(policy->chooseDevice({{"A", "A"}, {"B", "B"}}).kind, DeviceDecision::ShowPicker);
    // Unauthorized only when the type is that word.
    const DeviceDecision d = policy->chooseDevice({{"unauthorized", "unauthorized"}});
    EXPECT_EQ(d.kind, DeviceDecision::NotAuthorized);
    EXPECT_EQ(d.deviceId, "unauthorized");
    // Several devices give the picker whatever their state.
    EXPECT_EQ(policy->chooseDevice({{"unauthorized", "unauthorized"}, {"B", "B"}}).kind, DeviceDecision::ShowPicker);
}

TEST_F(ReconnectPolicyTest, RetryingOnlyReturnsToTheLastDevice)
{
    policy->streamStarted("A", "A");
    // Another single device appearing is never taken.
    EXPECT_EQ(policy->chooseDevice({{"B", "B"}}).kind, DeviceDecision::DeviceChanged);
    // With several devices the last one is picked without asking.
    const DeviceDecision back = policy->chooseDevice({{"B", "B"}, {"A", "A"}});
    EXPECT_EQ(back.kind, DeviceDecision::Connect);
    EXPECT_EQ(back.deviceId, "A");
    EXPECT_EQ(policy->chooseDevice({}).kind, DeviceDecision::NoDevices);

    // Once the retry is cancelled a new single device is fine again.
    policy->setAutoReconnect(false);
    EXPECT_EQ(policy->chooseDevice({{"B", "B"}}).kind, DeviceDecision::Connect);
}
