// SPDX-License-Identifier: MIT
#pragma once

#include "Android/DeviceListReader.h"
#include "Android/DeviceNameReader.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

class AdbSocketThread;

// One line of the server's device list. "type" repeats the serial in every well-formed line (the
// first non-empty field, kept so on purpose); the state word is not carried. name and product are
// absent when unknown; name is filled in later by a model lookup.
struct DeviceEntry
{
    QString id;
    QString type;
    std::optional<QString> name;
    std::optional<QString> product;

    friend bool operator==(const DeviceEntry &, const DeviceEntry &) = default;
};

// Receives the device list's results. onDevicesConnected and onDeviceModel arrive on the thread that
// owns the datasource (the GUI thread), queued; onDeviceListFailed arrives directly on the worker
// thread of the fetch that failed: re-post it, and never block there on the GUI thread.
class DeviceListDatasourceDelegate
{
public:
    virtual ~DeviceListDatasourceDelegate() = default;
    // After every successful parse, also when the list is empty.
    virtual void onDevicesConnected(const QList<DeviceEntry> &devices) = 0;
    virtual void onDeviceModel(const QString &deviceId, const QString &model) = 0;
    // 0: the ADB server could not be reached; 1: no device.
    virtual void onDeviceListFailed(int code) = 0;
};

// Lists the devices attached to the ADB server and looks up a model name for each device that has
// none, one device at a time, in the order the serials were first seen.
//
// Threads: create and destroy it on the GUI thread. Each fetch and each model lookup runs its reader
// on a worker thread of its own (with an event loop); the list and lookup state are shared between
// those threads under one lock. Replaced readers are dropped without further callbacks and their
// threads are joined from the owning thread, at the latest by the destructor.
class DeviceListDatasource : public QObject, private DeviceListReaderDelegate, private DeviceNameReaderDelegate
{
public:
    explicit DeviceListDatasource(QObject *parent = nullptr);
    ~DeviceListDatasource() override;

    // Weak; clear it before the delegate goes away.
    void setDelegate(DeviceListDatasourceDelegate *delegate);

    // The server and options every later fetch and lookup uses; any thread.
    void setConnectionSettings(const AdbConnectionSettings &settings);

    // Starts a fetch of the device list on a new worker thread (replaces the previous fetch).
    void loadDeviceList();
    // Starts a model lookup for one serial on a new worker thread.
    void requestDeviceModel(const QString &deviceId);

    QList<DeviceEntry> deviceList() const;
    QStringList lookupList() const;

    // Replaces deviceList with the parsed list, queues unnamed serials for lookup, announces the
    // list and starts the next lookup.
    void parseDeviceList(const QString &text);
    // The pure part: one entry per device line, in order. Lines starting with "-" or "error:" are
    // skipped (logged "invalid: ..."), empty ones silently.
    static QList<DeviceEntry> parseDeviceEntries(const QString &text);

    // Reader callbacks, public so tests can drive the chain without a server.
    void devicesReceived(const std::optional<QString> &list) override;
    void deviceListFailedWithError(int code) override;
    void deviceNameReceived(const QString &model, const QString &deviceId) override;
    void deviceNameFailedWithError(const AdbError &error, const QString &deviceId) override;

private:
    AdbConnectionSettings connectionSettings() const;
    void fetchDevices();
    void lookupNextDevice();
    void internalDeviceModel(const QString &deviceId);
    void notifyDevicesConneceted(); // spelled so: the name the application has always used
    void notifyDeviceModel(const QString &deviceId, const QString &model);
    void removeFromLookupList(const QString &deviceId);
    // Hands a replaced reader to the owning thread, which joins its worker.
    void retire(std::unique_ptr<AdbSocketThread> reader);
    void reapRetired();
    static void detach(AdbSocketThread &reader);

    std::atomic<DeviceListDatasourceDelegate *> m_delegate{nullptr};
    mutable QMutex m_mutex; // guards everything below
    QList<DeviceEntry> m_deviceList;
    QStringList m_lookupList;
    AdbConnectionSettings m_settings;
    std::unique_ptr<AdbSocketThread> m_deviceListReader;
    std::unique_ptr<AdbSocketThread> m_deviceNameReader;
    std::vector<std::unique_ptr<AdbSocketThread>> m_retired;
    bool m_reapScheduled = false;
};
