// SPDX-License-Identifier: MIT
#include "Android/AdbConnectionSettings.h"

#include <gtest/gtest.h>

#include <QList>

TEST(AdbConnectionSettings, EmptyServerOrPortKeepTheLocalDefaultAndPortsKeepTheirLow16Bits)
{
    const QList<std::tuple<QString, QString, QString, quint16>> cases = {
        {QString(), QString(), QStringLiteral("127.0.0.1"), 5037},
        {QStringLiteral("10.0.0.2"), QStringLiteral("5038"), QStringLiteral("10.0.0.2"), 5038},
        {QString(), QStringLiteral("70000"), QStringLiteral("127.0.0.1"), 4464},
        {QString(), QStringLiteral(" 5038abc"), QStringLiteral("127.0.0.1"), 5038}, // leading digits count
        {QString(), QStringLiteral("garbage"), QStringLiteral("127.0.0.1"), 0},
        {QString(), QStringLiteral("-1"), QStringLiteral("127.0.0.1"), 65535},
    };
    for (const auto &[server, port, host, number] : cases) {
        const AdbConnectionSettings s = AdbConnectionSettings::fromStored(server, port, true, QStringLiteral("*:S"));
        EXPECT_EQ(QStringLiteral("%1:%2 %3 %4").arg(s.server).arg(s.port).arg(int(s.clearLogOnStart)).arg(s.logTags),
                  QStringLiteral("%1:%2 1 *:S").arg(host).arg(number))
            << port.toStdString();
    }
}
