// SPDX-License-Identifier: MIT
#include "Helpers/UpdateThrottle.h"
#include "support/ManualTime.h"

#include <gtest/gtest.h>

namespace {

enum Call { Change, Flush };

// One call on the throttle at a clock reading (ms), and what it must answer: announced, then pending after it.
void run(UpdateThrottle throttle, std::initializer_list<std::tuple<Call, qint64, bool, quint64>> steps)
{
    ManualClock clock;
    for (const auto &[call, atMs, announce, pending] : steps) {
        clock.setNowMs(atMs);
        const bool announced =
            call == Change ? throttle.noteChange(clock.nowSeconds()) : throttle.flush(clock.nowSeconds());
        EXPECT_EQ(std::pair(announced, throttle.pending()), std::pair(announce, pending))
            << (call == Change ? "change" : "flush") << " at " << atMs;
    }
}

} // namespace

TEST(UpdateThrottle, AnnouncesAtMostOncePerIntervalAndTheFlushTakesTheRest)
{
    run(UpdateThrottle(), {
                              {Flush, 0, false, 0},    // nothing pending: nothing to say
                              {Change, 500, true, 0},  // the first change goes out at once, whatever the time
                              {Change, 600, false, 1}, // inside the interval: held back
                              {Change, 750, false, 2}, // exactly 0.25 s later: still held back
                              {Change, 751, true, 0},  // past it: announced, the held ones with it
                              {Change, 800, false, 1},
                              {Flush, 900, true, 0},    // the trailing tick announces what was held
                              {Flush, 1000, false, 0},  // and only once
                              {Change, 1100, false, 1}, // the flush counts as an announcement
                              {Change, 1151, true, 0},
                              {Change, 5000, true, 0}, // a quiet stretch: the next change goes out at once
                          });
    // A clock that starts at zero must not look like an announcement made at zero.
    run(UpdateThrottle(), {{Change, 0, true, 0}, {Change, 0, false, 1}, {Flush, 0, true, 0}});
    run(UpdateThrottle(0.5), {{Change, 1000, true, 0}, {Change, 1400, false, 1}, {Change, 1501, true, 0}});
}
