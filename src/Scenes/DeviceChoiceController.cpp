// SPDX-License-Identifier: MIT
#include "Scenes/DeviceChoiceController.h"

#include "Helpers/Logger.h"
#include "Scenes/DevicePickerSheet.h"
#include "Scenes/MainWindow.h"
#include "Session/ConnectionStatus.h"
#include "Session/LogDatasource.h"
#include "Session/ReconnectPolicy.h"

DeviceChoiceController::DeviceChoiceController(MainWindow *window, const LogDatasource *logDatasource,
                                               const ReconnectPolicy *reconnect, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_logDatasource(logDatasource)
    , m_reconnect(reconnect)
{
}

DeviceChoiceController::~DeviceChoiceController() = default;

QString DeviceChoiceController::getDeviceTitle(const DeviceEntry &device)
{
    return ConnectionStatus::getDeviceTitle(device.id, device.name.value_or(QString()), device.product.value_or(QString()));
}

QString DeviceChoiceController::titleForDevice(const QString &deviceId) const
{
    const auto device = m_deviceList.constFind(deviceId);
    return device != m_deviceList.cend() ? getDeviceTitle(*device) : deviceId;
}

void DeviceChoiceController::onDevicesConnected(const QList<DeviceEntry> &devices)
{
    QStringList ids;
    QList<DeviceCandidate> candidates;
    m_deviceList.clear();
    for (const DeviceEntry &device : devices) {
        ids << device.id;
        m_deviceList.insert(device.id, device);
        candidates.append({device.id, device.type});
    }
    QF_LOG(QStringLiteral("Connected Devices: %1").arg(ids.join(QStringLiteral(", "))));

    const DeviceDecision decision = m_reconnect->chooseDevice(candidates);
    switch (decision.kind) {
    case DeviceDecision::NoDevices:
    case DeviceDecision::DeviceChanged:
        break;
    case DeviceDecision::NotAuthorized:
        emit deviceNotAuthorized(decision.deviceId);
        break;
    case DeviceDecision::Connect:
        emit deviceChosen(decision.deviceId);
        break;
    case DeviceDecision::ShowPicker:
        showDevicePicker();
        break;
    }
}

void DeviceChoiceController::onDeviceModel(const QString &deviceId, const QString &model)
{
    QF_LOG(QStringLiteral("DeviceID: %1, Model: %2").arg(deviceId, model));
    const auto device = m_deviceList.find(deviceId);
    if (device != m_deviceList.end())
        device->name = model;
    if (m_window && !deviceId.isEmpty() && deviceId == m_logDatasource->deviceId())
        m_window->setWindowTitle(ConnectionStatus::deviceModelTitle(deviceId, model));
}

void DeviceChoiceController::onDeviceListFailed(int errorType)
{
    QPointer<DeviceChoiceController> self(this);
    QMetaObject::invokeMethod(this, [self, errorType] {
        if (!self)
            return;
        const bool retrying = self->m_reconnect->autoReconnect();
        QF_LOG(QStringLiteral("errorType:%1, autoReconnect:%2").arg(errorType).arg(int(retrying)));
        if (errorType == 1 && !retrying)
            emit self->noDeviceFound();
        else if (errorType == 0)
            emit self->adbNotReachable();
    }, Qt::QueuedConnection);
}

void DeviceChoiceController::showDevicePicker()
{
    if (m_deviceList.isEmpty()) {
        QF_LOG(QStringLiteral("No devices to show!!!"));
        return;
    }
    if (!m_devicePicker) {
        m_devicePicker = new DevicePickerSheet(m_window);
        connect(m_devicePicker, &QDialog::finished, this, &DeviceChoiceController::onPickerFinished);
    }
    QStringList titles;
    for (const DeviceEntry &device : std::as_const(m_deviceList))
        titles << getDeviceTitle(device);
    QF_LOG(QStringLiteral("Found %1 devices").arg(m_deviceList.size()));
    m_devicePicker->setDeviceTitles(titles);
    m_devicePicker->open();
}

void DeviceChoiceController::onPickerFinished(int returnCode)
{
    QF_LOG(QStringLiteral("return Code: %1, deviceSheetPicker: %2").arg(returnCode).arg(m_devicePicker->objectName()));
    m_devicePicker->hide();
    if (returnCode == 0)
        return;
    const int index = m_devicePicker->selectedIndex();
    const QStringList keys = m_deviceList.keys();
    if (index >= 0 && index < keys.size())
        emit deviceChosen(keys.at(index));
}
