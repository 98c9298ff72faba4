// SPDX-License-Identifier: MIT
#include "Helpers/Clock.h"

#include <gtest/gtest.h>

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
