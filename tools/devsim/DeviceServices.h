// SPDX-License-Identifier: MIT
#pragma once

#include "DeviceConfig.h"
#include "DeviceScreen.h"

#include <QByteArray>
#include <QStringList>

#include <memory>

class DeviceLog;
class DeviceStream;

// Answers the services the adb server opens on the device ("shell:...", "exec:...").
class DeviceServices
{
public:
    DeviceServices(const DeviceConfig &config, DeviceLog &log);

    // A stream for the service, or null to refuse it (the server then reports a closed stream).
    std::unique_ptr<DeviceStream> open(const QByteArray &service);

    // The command that a shell line finally runs: "export" assignments and "exec" are dropped,
    // quotes removed ("export A=\"''\"; exec logcat '-v' 'threadtime'" gives logcat, -v, threadtime).
    static QStringList commandWords(const QString &commandLine);

    QByteArray banner() const;

private:
    QByteArray run(const QString &commandLine, bool &isStream, bool &dump);

    DeviceConfig m_config;
    DeviceLog &m_log;
    DeviceScreen m_screen;
};
