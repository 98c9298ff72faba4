// SPDX-License-Identifier: MIT
#include "Android/AdbConnectionSettings.h"

AdbConnectionSettings AdbConnectionSettings::fromStored(const QString &server, const QString &port,
                                                        bool clearLogOnStart, const QString &logTags)
{
    AdbConnectionSettings settings;
    if (!server.isEmpty())
        settings.server = server;
    if (!port.isEmpty()) {
        const QString text = port.trimmed();
        qsizetype end = 0;
        if (end < text.size() && (text[end] == u'-' || text[end] == u'+'))
            ++end;
        while (end < text.size() && text[end].isDigit())
            ++end;
        const qlonglong value = text.left(end).toLongLong();
        settings.port = static_cast<quint16>(static_cast<quint64>(value) & 0xffffU);
    }
    settings.clearLogOnStart = clearLogOnStart;
    settings.logTags = logTags;
    return settings;
}
