// SPDX-License-Identifier: MIT
#pragma once

#include "Scenes/DevicePickerSheet.h"
#include "Session/DeviceListDatasource.h"

#include <QMap>
#include <QObject>
#include <QPointer>

class LogDatasource;
class MainWindow;
class ReconnectPolicy;

// Which device to log: takes the device list's answers (the list, the model names, the failures),
// lets ReconnectPolicy decide, and asks the user through the device picker when several devices are
// attached. What follows a decision is the application controller's: it listens to the signals.
// GUI thread only, except onDeviceListFailed.
class DeviceChoiceController : public QObject
{
    Q_OBJECT

public:
    DeviceChoiceController(MainWindow *window, const LogDatasource *logDatasource, const ReconnectPolicy *reconnect,
                           QObject *parent = nullptr);
    ~DeviceChoiceController() override;

    void onDevicesConnected(const QList<DeviceEntry> &devices);
    void onDeviceModel(const QString &deviceId, const QString &model);
    // Any thread: re-posted to the GUI thread before it touches anything.
    void onDeviceListFailed(int errorType);
    void showDevicePicker();

    // "name - id", else "product - id", else the id.
    static QString getDeviceTitle(const DeviceEntry &device);
    // The title of a listed device, or its id when the list does not hold it.
    QString titleForDevice(const QString &deviceId) const;

    const QMap<QString, DeviceEntry> &deviceList() const { return m_deviceList; }
    void clearDeviceList() { m_deviceList.clear(); }
    DevicePickerSheet *devicePickerSheet() const { return m_devicePicker; }

signals:
    // The device to log (chosen alone or in the picker).
    void deviceChosen(const QString &deviceId);
    void deviceNotAuthorized(const QString &deviceId);
    // The device list found no device while no retry was running.
    void noDeviceFound();
    void adbNotReachable();

private:
    void onPickerFinished(int returnCode);

    QPointer<MainWindow> m_window;
    const LogDatasource *m_logDatasource;
    const ReconnectPolicy *m_reconnect;
    QMap<QString, DeviceEntry> m_deviceList; // keyed by id; the picker lists them in key order
    QPointer<DevicePickerSheet> m_devicePicker;
};
