// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/Clock.h"
#include "Helpers/RepeatingTimer.h"

#include <atomic>
#include <chrono>

// Time that moves only when a test says so, for whatever takes a Clock or a RepeatingTimer.

// Safe to read from any thread.
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

// Hand it to its owner and keep the raw pointer: it stays valid while the owner lives.
class ManualTimer final : public RepeatingTimer
{
public:
    void start(std::chrono::milliseconds interval) override
    {
        active = true;
        lastInterval = interval;
    }
    void stop() override { active = false; }
    bool isActive() const override { return active; }
    // One expiry, as the real timer would deliver it (only while running).
    void fire()
    {
        if (active && onTimeout)
            onTimeout();
    }

    bool active = false;
    std::chrono::milliseconds lastInterval{0};
};
