// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <atomic>

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

// A clock that moves only when told to; safe to read from any thread.
class ManualClock final : public Clock
{
public:
    explicit ManualClock(qint64 startMs = 0) : m_now(startMs) {}
    qint64 nowMs() const override { return m_now.load(std::memory_order_acquire); }
    void setNowMs(qint64 ms) { m_now.store(ms, std::memory_order_release); }
    void advanceMs(qint64 ms) { m_now.fetch_add(ms, std::memory_order_acq_rel); }

private:
    std::atomic<qint64> m_now;
};
