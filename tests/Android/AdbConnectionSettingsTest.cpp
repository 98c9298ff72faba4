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
        EXPECT_EQ(s.server, host) << port.toStdString();
        EXPECT_EQ(s.port, number) << port.toStdString();
        EXPECT_TRUE(s.clearLogOnStart);
        EXPECT_EQ(s.logTags, QStringLiteral("*:S"));
    }
}
