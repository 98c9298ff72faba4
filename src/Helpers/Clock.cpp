// SPDX-License-Identifier: MIT
#include "Helpers/Clock.h"

#include <chrono>

qint64 SystemClock::nowMs() const
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

const Clock &Clock::system()
{
    static const SystemClock clock;
    return clock;
}
