// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace bench {

// Settings and the diagnostic log of a benchmark must not touch the user's own folders.
inline void isolateUserFolders(const QString &dir)
{
    qputenv("XDG_CONFIG_HOME", (dir + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_DATA_HOME", (dir + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CACHE_HOME", (dir + QStringLiteral("/cache")).toUtf8());
}

} // namespace bench
