// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

// A monotonic clock in milliseconds, passed to whatever throttles or waits (the 0.25 s / 0.5 s update
// throttle, the 5 s reconnect timer, log file rolling) so that tests can drive time by hand.
// Only differences between readings mean anything; the origin is arbitrary.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual qint64 nowMs() const = 0;
    double nowSeconds() const { return double(nowMs()) / 1000.0; }

    // The process-wide SystemClock.
    static const Clock &system();
};

// std::chrono::steady_clock.
class SystemClock final : public Clock
{
public:
    qint64 nowMs() const override;
};
