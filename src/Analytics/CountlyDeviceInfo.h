// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// What the analytics client says about this machine: the anonymous device id and the metrics of a
// session start. metrics() and resolution() read the screen: GUI thread.
class CountlyDeviceInfo
{
public:
    CountlyDeviceInfo() = delete;

    // A 40-hexadecimal-digit random id, made on first use and kept in the settings under "OpenUDID"
    // (with "OpenUDID_createdTS"); every later call returns the kept one.
    static QString openUDID();

    // The machine's product name from the firmware tables, or "unknown".
    static QString device();
    // VERSION_ID of the system's os-release; empty when there is none.
    static QString osVersion();
    // The primary screen's size, "%gx%g"; empty without a screen.
    static QString resolution();
    static QString locale();

    // {"_device", "_os": "Linux", "_os_version", "_resolution", "_locale", "_app_version"} as compact JSON
    // (no "_carrier"; "_resolution" only with a screen).
    static QByteArray metrics(const QString &appVersion);
};
