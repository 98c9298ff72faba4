// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>

class QTimer;

// A repeating timer for whoever schedules work by the clock (the reconnect policy, the usage
// statistics session); tests substitute one they fire by hand.
class RepeatingTimer
{
public:
    virtual ~RepeatingTimer() = default;
    virtual void start(std::chrono::milliseconds interval) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
    // Called on every expiry, on the thread that owns the timer.
    std::function<void()> onTimeout;
};

// A QTimer, firing on the thread that created it.
class QtRepeatingTimer final : public RepeatingTimer
{
public:
    QtRepeatingTimer();
    ~QtRepeatingTimer() override;
    void start(std::chrono::milliseconds interval) override;
    void stop() override;
    bool isActive() const override;

private:
    std::unique_ptr<QTimer> m_timer;
};
