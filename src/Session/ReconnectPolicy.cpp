// SPDX-License-Identifier: MIT
#include "Session/ReconnectPolicy.h"

#include "Helpers/Logger.h"

ReconnectPolicy::ReconnectPolicy(std::unique_ptr<RepeatingTimer> timer, QObject *parent)
    : QObject(parent)
    , m_timer(timer ? std::move(timer) : std::make_unique<QtRepeatingTimer>())
{
    m_timer->onTimeout = [this] { onReconnectTimerTick(); };
}

ReconnectPolicy::~ReconnectPolicy()
{
    m_timer->onTimeout = nullptr;
    m_timer->stop();
}

void ReconnectPolicy::forgetLastDevice()
{
    m_lastDeviceConnectedId = QString();
    m_lastDeviceConnectedTitle = QString();
}

bool ReconnectPolicy::isDifferentDevice(const QString &deviceId) const
{
    return m_lastDeviceConnectedId.isNull() || deviceId != m_lastDeviceConnectedId;
}

void ReconnectPolicy::streamStarted(const QString &deviceId, const QString &title)
{
    m_autoReconnect = true;
    stopReconnectTimer();
    m_lastDeviceConnectedId = deviceId;
    m_lastDeviceConnectedTitle = title;
}

DeviceDecision ReconnectPolicy::chooseDevice(const QList<DeviceCandidate> &devices) const
{
    if (devices.isEmpty()) {
        QF_LOG(QStringLiteral("no devices connected!"));
        return {DeviceDecision::NoDevices, {}};
    }
    const DeviceCandidate *candidate = devices.size() == 1 ? &devices.front() : nullptr;
    if (m_autoReconnect) {
        candidate = nullptr;
        for (const DeviceCandidate &device : devices) {
            if (!m_lastDeviceConnectedId.isNull() && device.id == m_lastDeviceConnectedId) {
                candidate = &device;
                break;
            }
        }
        if (!candidate) {
            QF_LOG(QStringLiteral("device change - don't automatically reconnect to new device!"));
            return {DeviceDecision::DeviceChanged, {}};
        }
    }
    if (!candidate)
        return {DeviceDecision::ShowPicker, {}};
    // The device list repeats the serial in "type", so this only fires for a serial that is
    // literally "unauthorized"; the rule is kept as it is.
    if (candidate->type == QLatin1String("unauthorized"))
        return {DeviceDecision::NotAuthorized, candidate->id};
    return {DeviceDecision::Connect, candidate->id};
}

void ReconnectPolicy::startReconnectTimer()
{
    QF_LOG(QStringLiteral("start reconnect timer"));
    m_timer->stop();
    m_timer->start(ReconnectInterval);
}

void ReconnectPolicy::stopReconnectTimer()
{
    if (m_timer->isActive()) {
        QF_LOG(QStringLiteral("stop reconnect timer"));
        m_timer->stop();
    }
}

bool ReconnectPolicy::isTimerRunning() const
{
    return m_timer->isActive();
}

void ReconnectPolicy::onReconnectTimerTick()
{
    if (m_autoReconnect)
        emit reconnectDue();
}
