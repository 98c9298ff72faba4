// SPDX-License-Identifier: MIT
#include "Helpers/RepeatingTimer.h"

#include <QTimer>

QtRepeatingTimer::QtRepeatingTimer()
    : m_timer(std::make_unique<QTimer>())
{
    QObject::connect(m_timer.get(), &QTimer::timeout, m_timer.get(), [this] {
        if (onTimeout)
            onTimeout();
    });
}

QtRepeatingTimer::~QtRepeatingTimer() = default;

void QtRepeatingTimer::start(std::chrono::milliseconds interval)
{
    m_timer->start(interval);
}

void QtRepeatingTimer::stop()
{
    m_timer->stop();
}

bool QtRepeatingTimer::isActive() const
{
    return m_timer->isActive();
}
