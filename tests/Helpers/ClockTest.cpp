// SPDX-License-Identifier: MIT
#include "Helpers/Clock.h"

#include <gtest/gtest.h>

TEST(Clock, ManualClockMovesOnlyWhenTold)
{
    ManualClock clock(1000);
    const Clock &asClock = clock;
    EXPECT_EQ(asClock.nowMs(), 1000);
    clock.advanceMs(250);
    EXPECT_EQ(asClock.nowMs(), 1250);
    EXPECT_DOUBLE_EQ(asClock.nowSeconds(), 1.25);
    clock.setNowMs(5000);
    EXPECT_EQ(asClock.nowMs(), 5000);
}

TEST(Clock, SystemClockNeverGoesBack)
{
    const Clock &clock = Clock::system();
    qint64 previous = clock.nowMs();
    for (int i = 0; i < 10000; ++i) {
        const qint64 now = clock.nowMs();
        ASSERT_GE(now, previous);
        previous = now;
    }
    EXPECT_EQ(&Clock::system(), &clock);
}
