// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <gtest/gtest.h>

// Writes bytes to path (replacing it, creating its folder) and returns the path; a failure fails the test.
inline QString writeTestFile(const QString &path, const QByteArray &bytes)
{
    EXPECT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath())) << path.toStdString();
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    EXPECT_EQ(file.write(bytes), bytes.size()) << path.toStdString();
    return path;
}
