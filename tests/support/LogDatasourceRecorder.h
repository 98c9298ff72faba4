// SPDX-License-Identifier: MIT
#pragma once

#include "Session/LogDatasource.h"

#include <atomic>

// Counts every call a LogDatasource makes to its delegate. Written on the GUI thread; atomics because
// tests read them from workers too.
class LogDatasourceRecorder : public LogDatasourceDelegate
{
public:
    void onLoggerStarted() override { ++started; }
    void onLoggerStopped() override { ++stopped; }
    void onLogUpdated() override { ++updated; }
    void onMultipleDevicesConnected() override { ++multipleDevices; }
    void onDeviceNotFound() override { ++deviceNotFound; }
    void onNoDeviceSelected() override { ++noDeviceSelected; }
    void adbNotRunningError(const AdbError &error) override
    {
        ++adbNotRunning;
        lastError = error;
    }
    void adbDeviceNotFound(const AdbError &error) override
    {
        ++adbNotFound;
        lastError = error;
    }

    std::atomic<int> started{0}, stopped{0}, updated{0}, multipleDevices{0}, deviceNotFound{0}, noDeviceSelected{0},
        adbNotRunning{0}, adbNotFound{0};
    AdbError lastError; // GUI thread
};
