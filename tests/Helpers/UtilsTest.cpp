// SPDX-License-Identifier: MIT
#include "Helpers/Utils.h"

#include "Helpers/MainThread.h"
#include "support/LogCapture.h"
#include "support/QtPrinters.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

const auto Executable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

class UtilsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_env.insert(QStringLiteral("ANDROID_HOME"), m_dir.filePath(QStringLiteral("sdk")));
        m_env.insert(QStringLiteral("ANDROID_SDK_ROOT"), m_dir.filePath(QStringLiteral("sdkroot")));
        m_env.insert(QStringLiteral("PATH"), bin() + QStringLiteral(":/nonexistent"));
    }

    QString home() const { return m_dir.filePath(QStringLiteral("home")); }
    QString bin() const { return m_dir.filePath(QStringLiteral("bin")); }

    // A fake tool running `script`.
    QString tool(const QByteArray &script) const
    {
        const QString path = writeTestFile(bin() + QStringLiteral("/adb"), "#!/bin/sh\n" + script + '\n');
        EXPECT_TRUE(QFile::setPermissions(path, Executable));
        return path;
    }

    // Runs startAdb and waits for the completion, which must come on the main thread.
    static std::optional<bool> start(const QString &tool)
    {
        std::optional<bool> result;
        Utils::startAdb(tool, [&](bool success) {
            EXPECT_TRUE(isMainThread());
            result = success;
        });
        EXPECT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, 10000)) << "no completion";
        return result;
    }

    QTemporaryDir m_dir;
    QProcessEnvironment m_env;
};

} // namespace

TEST_F(UtilsTest, FirstExistingCandidateWinsAndEachMissIsLogged)
{
    const QStringList order{
        home() + "/android-sdks/platform-tools/adb",  home() + "/Library/Android/sdk/platform-tools/adb",
        home() + "/Android/Sdk/platform-tools/adb",   m_dir.filePath("sdk/platform-tools/adb"),
        m_dir.filePath("sdkroot/platform-tools/adb"), bin() + "/adb"};
    // SDK folders need only a file; on the path only an executable counts.
    for (const QString &path : order)
        writeTestFile(path, {});
    ASSERT_TRUE(QFile::setPermissions(order[5], Executable));

    // Remove the winner each round: the next one in order must win.
    for (qsizetype winner = 0; winner < order.size(); ++winner) {
        LogCapture log;
        EXPECT_EQ(Utils::getAdbPath(home(), m_env), order[winner]);
        QStringList expected;
        for (qsizetype miss = 0; miss < winner; ++miss)
            expected.append(QStringLiteral("not found:") + order[miss]);
        expected.append(QStringLiteral("found:") + order[winner]);
        EXPECT_EQ(log.lines(), expected) << "winner " << winner;
        ASSERT_TRUE(QFile::remove(order[winner]));
    }
    ASSERT_TRUE(QDir().mkpath(order[0])); // a folder named adb is not the tool,
    writeTestFile(order[5], {});          // nor a file on the path that cannot run
    LogCapture log;
    EXPECT_EQ(Utils::getAdbPath(home(), m_env), std::nullopt);
    EXPECT_EQ(log.lines().last(), QStringLiteral("not found:adb"));

    // Unset or empty variables are skipped.
    QProcessEnvironment bare;
    bare.insert(QStringLiteral("ANDROID_HOME"), QString());
    EXPECT_EQ(Utils::adbCandidates(home(), bare), order.mid(0, 3) + QStringList{QStringLiteral("adb")});
}

TEST_F(UtilsTest, StartSucceedsOnlyWhenTheDaemonSaysSoAndFailsWhenTheToolIsMissingOrCannotRun)
{
    LogCapture log;
    EXPECT_EQ(start(tool("echo '* daemon not running; starting now'\necho '* daemon started successfully'")), true);
    EXPECT_EQ(log.startingWith(QStringLiteral("GOT: ")),
              QStringList{QStringLiteral("GOT: * daemon not running; starting now\n* daemon started successfully\n")});

    const std::pair<const char *, bool> runs[] = {
        {"echo '* DAEMON STARTED SUCCESSFULLY *'", true},
        {"echo 'daemon started successfully' >&2", true},                       // standard error is merged
        {"echo starting; sleep 0.2; echo 'daemon started successfully'", true}, // late output is read to the end
        {"echo 'adb server is already running'", false},
        {"echo 'daemon started'; exit 1", false},
        // A closed input gives end of file at once (status 1); an open, silent pipe makes read time out (>128).
        {"exec /bin/bash -c 'read -t 1 line; [ $? -gt 128 ] && echo daemon started successfully'", true},
    };
    for (const auto &[script, success] : runs)
        EXPECT_EQ(start(tool(script)), success) << script;

    std::optional<bool> result;
    Utils::startAdb(std::nullopt, [&](bool success) { result = success; });
    EXPECT_EQ(result, false) << "not found: false at once";
    EXPECT_EQ(log.lines().last(), QStringLiteral("adb not found"));

    EXPECT_EQ(start(bin() + QStringLiteral("/missing-adb")), false);
    EXPECT_EQ(log.startingWith(QStringLiteral("NSException: ")).size(), 1);
}

TEST(Utils, SandboxedWhenTheVariableIsSetEvenEmpty)
{
    qputenv("APP_SANDBOX_CONTAINER_ID", "");
    EXPECT_TRUE(Utils::isSandboxed());
    qunsetenv("APP_SANDBOX_CONTAINER_ID");
    EXPECT_FALSE(Utils::isSandboxed());
}

TEST_F(UtilsTest, StartRunsOneToolAtATimeOnTheGivenPort)
{
    // The tool records each run's arguments; the second caller arrives while the first run is going.
    const QString runs = m_dir.filePath(QStringLiteral("runs"));
    const QString adb =
        tool(QStringLiteral("echo \"$*\" >> '%1'; sleep 0.3; echo 'daemon started successfully'").arg(runs).toUtf8());
    std::optional<bool> first;
    std::optional<bool> second;
    Utils::startAdb(
        adb, [&](bool ok) { first = ok; }, 5555);
    Utils::startAdb(
        adb, [&](bool ok) { second = ok; }, 5555);
    ASSERT_TRUE(QTest::qWaitFor([&] { return first && second; }, 10000));
    EXPECT_TRUE(*first && *second);
    QFile file(runs);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("-P 5555 start-server\n"));
}
