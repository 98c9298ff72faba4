// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The texts the main window shows for the connection: window titles, the Run/Stop label and the
// status line. Pure functions so every wording is tested without a window.
namespace ConnectionStatus {

inline constexpr const char *NoDevicesTitle = "No devices connected";
inline constexpr const char *StartingAdbTitle = "Starting ADB server..";

// "name - id", else "product - id", else the id alone. An empty field counts as absent.
QString getDeviceTitle(const QString &id, const QString &name, const QString &product);

// Title once a model name arrives for the logged device: id first, model second (the reverse of
// getDeviceTitle on purpose).
QString deviceModelTitle(const QString &deviceId, const QString &model);

// lastTitle null: no device was ever connected. While retrying the title says the device is away.
QString offlineTitle(const QString &lastTitle, bool autoReconnect);

// What the Run/Stop item offers; every state but Run shows the stop icon. `away`: retrying a device
// that is not streaming, where the item cancels the retries rather than stopping a stream.
enum class ConnectButton { Run, Stop, Cancel };
bool showsStop(bool isLogging, bool autoReconnect);
ConnectButton connectButton(bool isLogging, bool autoReconnect, bool away = false);
QString connectButtonLabel(ConnectButton button); // "Run", "Stop", "Cancel"

// The status line under the log table.
QString statusText(bool filterActive, quint64 shownRows, quint64 totalEntries, bool isLogging, const QString &version);

} // namespace ConnectionStatus
