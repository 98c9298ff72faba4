// SPDX-License-Identifier: MIT
#pragma once

#include "Helpers/RepeatingTimer.h"

#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

// One attached device as the policy needs to see it.
struct DeviceCandidate
{
    QString id;
    QString type;
};

// What to do with a fresh device list.
struct DeviceDecision
{
    enum Kind {
        NoDevices,     // nothing attached: stay silent
        ShowPicker,    // several devices and no device to return to
        Connect,       // log `deviceId`
        NotAuthorized, // the only candidate must first allow USB debugging
        DeviceChanged, // retrying, and the last device is not among them: never switch devices on our own
    };
    Kind kind = NoDevices;
    QString deviceId;
};

// Decides when the window reconnects and to which device. Once a stream to a device has started, a
// lost stream is retried every 5 seconds, and only ever to that same device. GUI thread only.
class ReconnectPolicy : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds ReconnectInterval{5000};

    explicit ReconnectPolicy(std::unique_ptr<RepeatingTimer> timer = {}, QObject *parent = nullptr);
    ~ReconnectPolicy() override;

    bool autoReconnect() const { return m_autoReconnect; }
    void setAutoReconnect(bool on) { m_autoReconnect = on; }

    // Null until the first stream of this run has started.
    QString lastDeviceConnectedId() const { return m_lastDeviceConnectedId; }
    QString lastDeviceConnectedTitle() const { return m_lastDeviceConnectedTitle; }
    // Opening a file forgets the device, so the next stream clears the log again.
    void forgetLastDevice();

    // True when a stream of `deviceId` must start with an empty log (always on the first stream).
    bool isDifferentDevice(const QString &deviceId) const;
    // A stream to `deviceId` is open: retry from now on, and stop any pending retries.
    void streamStarted(const QString &deviceId, const QString &title);

    DeviceDecision chooseDevice(const QList<DeviceCandidate> &devices) const;

    // Retries since the device was last seen streaming. Only the first one writes rows into the log;
    // the rest are quiet (a diagnostic line each), so an outage does not fill the log.
    int noteRetry() { return ++m_retries; }
    bool quietRetry() const { return m_retries > 1; }
    void resetRetries() { m_retries = 0; }

    void startReconnectTimer();
    void stopReconnectTimer();
    bool isTimerRunning() const;

signals:
    // A retry is due (the timer ticked while autoReconnect is still set).
    void reconnectDue();

private:
    void onReconnectTimerTick();

    std::unique_ptr<RepeatingTimer> m_timer;
    bool m_autoReconnect = false;
    QString m_lastDeviceConnectedId;
    QString m_lastDeviceConnectedTitle;
    int m_retries = 0;
};
