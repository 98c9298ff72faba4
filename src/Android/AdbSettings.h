// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The settings the ADB client reads at connect time, each with its Part-specific fallback.
namespace AdbSettings {

QString adbServer();     // "127.0.0.1" when absent or empty
quint16 adbPort();       // 5037 when absent or empty; other values keep their low 16 bits
QString adbLogTags();    // "" when absent
bool clearLogOnStart();  // false when absent

} // namespace AdbSettings
