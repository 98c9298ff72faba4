// SPDX-License-Identifier: MIT
#include "Helpers/UpdateThrottle.h"
#include "support/ManualTime.h"

#include <gtest/gtest.h>

namespace {

// One call on the throttle at a clock reading, and what it must answer.
struct Step
{
    enum Call { Change, Flush } call;
    qint64 atMs;
    bool announce;
    quint64 pendingAfter;
};

void run(UpdateThrottle throttle, std::initializer_list<Step> steps)
{
    ManualClock clock;
    for (const Step &step : steps) {
        clock.setNowMs(step.atMs);
        const bool announced =
            step.call == Step::Change ? throttle.noteChange(clock.nowSeconds()) : throttle.flush(clock.nowSeconds());
        EXPECT_EQ(announced, step.announce) << (step.call == Step::Change ? "change" : "flush") << " at " << step.atMs;
        EXPECT_EQ(throttle.pending(), step.pendingAfter) << "at " << step.atMs;
    }
}

} // namespace

TEST(UpdateThrottle, AnnouncesAtMostOncePerIntervalAndTheFlushTakesTheRest)
{
    run(UpdateThrottle(), {
                              {Step::Flush, 0, false, 0},    // nothing pending: nothing to say
                              {Step::Change, 500, true, 0},  // the first change goes out at once, whatever the time
                              {Step::Change, 600, false, 1}, // inside the interval: held back
                              {Step::Change, 750, false, 2}, // exactly 0.25 s later: still held back
                              {Step::Change, 751, true, 0},  // past it: announced, the held ones with it
                              {Step::Change, 800, false, 1},
                              {Step::Flush, 900, true, 0},    // the trailing tick announces what was held
                              {Step::Flush, 1000, false, 0},  // and only once
                              {Step::Change, 1100, false, 1}, // the flush counts as an announcement
                              {Step::Change, 1151, true, 0},
                              {Step::Change, 5000, true, 0}, // a quiet stretch: the next change goes out at once
                          });
    // A clock that starts at zero must not look like an announcement made at zero.
    run(UpdateThrottle(), {{Step::Change, 0, true, 0}, {Step::Change, 0, false, 1}, {Step::Flush, 0, true, 0}});
    run(UpdateThrottle(0.5),
        {{Step::Change, 1000, true, 0}, {Step::Change, 1400, false, 1}, {Step::Change, 1501, true, 0}});
}
