// SPDX-License-Identifier: MIT
#pragma once

#include "Session/ProcessNameMap.h"

#include <QList>
#include <QString>

// What one answer of the device's process list says, read without touching any session state.
// The datasource applies it: names to the process map, a short answer flips the "-A" argument, an
// "error:" line that names a session-ending failure aborts the session.
struct ProcessListAnswer
{
    enum class Abort {
        None,
        MultipleDevices, // "error: more than one device and emulator"
        DeviceNotFound,  // "error: device not found"
    };

    // 99 characters or fewer: an error of the command itself ("bad pid" for "-A" on old devices).
    bool isShort = false;
    // Process lines in answer order, up to the line that aborts (if any).
    QList<ProcessNameMap::PsLine> processes;
    Abort abort = Abort::None;

    // Writes "parsePID: ..." for every "error:" line it meets, as the lookup always has.
    static ProcessListAnswer parse(const QString &text);
};
