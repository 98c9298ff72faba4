// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbConnectionSettings.h"
#include "Android/AdbError.h"

#include <QImage>
#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>

// Receives the screenshots of a DeviceScreenDatasource, always on the GUI thread.
class DeviceScreenDatasourceDelegate
{
public:
    virtual ~DeviceScreenDatasourceDelegate() = default;
    // A null screen: the capture arrived but did not decode.
    virtual void onScreenUpdate(const QString &deviceId, const QImage &screen) = 0;
    // Monitoring has stopped after this call.
    virtual void onScreenUpdateFailedWithError(const std::optional<AdbError> &error, const QString &deviceId) = 0;
};

// Screenshots of one device: a snapshot, or auto refresh, where the next capture starts as soon as an
// image has arrived (no timer: as fast as the device and the server deliver).
//
// Threads: created and driven on the GUI thread. Each monitoring cycle runs one ScreencapReader on an
// AdbSocketThread of its own, which starts the next capture as soon as a capture's bytes are in; a
// decoding thread of the cycle decodes them, in order, and posts the delegate calls to the GUI thread.
// isRunning and autoRefresh are atomics read by those threads. stop destroys the cycle (waiting for
// both threads), so nothing of a stopped cycle reaches the delegate.
class DeviceScreenDatasource : public QObject
{
public:
    explicit DeviceScreenDatasource(QObject *parent = nullptr);
    ~DeviceScreenDatasource() override;

    void setDelegate(DeviceScreenDatasourceDelegate *delegate) { m_delegate = delegate; }
    void setDeviceId(const QString &deviceId) { m_deviceId = deviceId; }
    QString deviceId() const { return m_deviceId; }
    void setConnectionSettings(const AdbConnectionSettings &settings) { m_settings = settings; }

    // Starts a cycle: one image, or images until stopped. While running (which a snapshot stays until
    // stopMonitoring) it only logs "already running" and the argument is ignored.
    void startMonitoring(bool autoRefresh);
    // Idempotent.
    void stopMonitoring();

    bool isRunning() const { return m_isRunning; }
    bool autoRefresh() const { return m_autoRefresh; }

private:
    class Cycle;
    void deliverImage(quint64 generation, const QImage &image);
    void deliverFailure(quint64 generation, const std::optional<AdbError> &error);

    DeviceScreenDatasourceDelegate *m_delegate = nullptr;
    QString m_deviceId;
    AdbConnectionSettings m_settings;
    std::atomic<bool> m_isRunning{false};
    std::atomic<bool> m_autoRefresh{false};
    quint64 m_generation = 0; // GUI thread; the current cycle's number, so a stopped one's posts are dropped
    std::unique_ptr<Cycle> m_cycle;
};
