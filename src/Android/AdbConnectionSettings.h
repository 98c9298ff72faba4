// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// What an ADB conversation needs from the user's settings, handed down by the owner of the readers.
struct AdbConnectionSettings
{
    QString server = QStringLiteral("127.0.0.1");
    quint16 port = 5037;
    bool clearLogOnStart = false;
    QString logTags; // ANDROID_LOG_TAGS, inserted as it is

    // From the texts as stored: an empty server or port keeps the default above; a port keeps the low
    // 16 bits of its leading number (garbage reads 0).
    static AdbConnectionSettings fromStored(const QString &server, const QString &port, bool clearLogOnStart,
                                            const QString &logTags);

    friend bool operator==(const AdbConnectionSettings &, const AdbConnectionSettings &) = default;
};
