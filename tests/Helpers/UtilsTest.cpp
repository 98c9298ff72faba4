// SPDX-License-Identifier: MIT
#include "Helpers/Utils.h"

#include "Helpers/MainThread.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

void makeExecutable(const QString &path, const QByteArray &script)
{
    writeTestFile(path, "#!/bin/sh\n" + script);
    ASSERT_TRUE(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
}

class UtilsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_env.insert(QStringLiteral("ANDROID_HOME"), m_dir.filePath(QStringLiteral("sdk")));
        m_env.insert(QStringLiteral("ANDROID_SDK_ROOT"), m_dir.filePath(QStringLiteral("sdkroot")));
        m_env.insert(QStringLiteral("PATH"), bin() + QStringLiteral(":/nonexistent"));
    }

    QString home() const { return m_dir.filePath(QStringLiteral("home")); }
    QString bin() const { return m_dir.filePath(QStringLiteral("bin")); }

    // Runs startAdb with a fake tool and waits for the completion.
    std::optional<bool> startWith(const QByteArray &script, bool *onMainThread = nullptr)
    {
        const QString tool = bin() + QStringLiteral("/adb");
        makeExecutable(tool, script);
        return start(tool, onMainThread);
    }

    static std::optional<bool> start(const std::optional<QString> &tool, bool *onMainThread = nullptr)
    {
        std::optional<bool> result;
        Utils::startAdb(tool, [&](bool success) {
            if (onMainThread)
                *onMainThread = isMainThread();
            result = success;
        });
        if (!QTest::qWaitFor([&] { return result.has_value(); }, 10000))
            ADD_FAILURE() << "no completion";
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
    for (const QString &path : order)
        makeExecutable(path, "exit 0\n");

    // Remove the winner each round: the next one in order must win.
    for (qsizetype winner = 0; winner < order.size(); ++winner) {
        LogCapture log;
        EXPECT_EQ(Utils::getAdbPath(home(), m_env), order[winner]);
        QStringList expected;
        for (qsizetype miss = 0; miss < winner; ++miss)
            expected.append(QStringLiteral("not found:") + (miss == 5 ? QStringLiteral("adb") : order[miss]));
        expected.append(QStringLiteral("found:") + order[winner]);
        EXPECT_EQ(log.lines(), expected) << "winner " << winner;
        ASSERT_TRUE(QFile::remove(order[winner]));
    }

    LogCapture log;
    EXPECT_EQ(Utils::getAdbPath(home(), m_env), std::nullopt);
    EXPECT_EQ(log.lines().last(), QStringLiteral("not found:adb"));
    // Unset or empty variables are skipped.
    QProcessEnvironment bare;
    bare.insert(QStringLiteral("ANDROID_HOME"), QString());
    EXPECT_EQ(Utils::adbCandidates(home(), bare), order.mid(0, 3) + QStringList{QStringLiteral("adb")});
}

TEST_F(UtilsTest, SdkFoldersNeedOnlyAFileButThePathNeedsAnExecutable)
{
    const QString inHome = writeTestFile(home() + QStringLiteral("/android-sdks/platform-tools/adb"), {});
    EXPECT_EQ(Utils::getAdbPath(home(), m_env), inHome);
    ASSERT_TRUE(QFile::remove(inHome));

    // A folder named adb is not the tool.
    ASSERT_TRUE(QDir().mkpath(inHome));
    const QString onPath = writeTestFile(bin() + QStringLiteral("/adb"), {});
    EXPECT_EQ(Utils::getAdbPath(home(), m_env), std::nullopt);

    ASSERT_TRUE(QFile::setPermissions(onPath, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    EXPECT_EQ(Utils::getAdbPath(home(), m_env), bin() + QStringLiteral("/adb"));
}

TEST_F(UtilsTest, StartSucceedsOnlyWhenTheDaemonSaysSo)
{
    LogCapture log;
    bool onMainThread = false;
    EXPECT_EQ(startWith("echo '* daemon not running; starting now at tcp:5037'\n"
                        "echo '* daemon started successfully'\n",
                        &onMainThread),
              true);
    EXPECT_TRUE(onMainThread);
    EXPECT_EQ(log.startingWith(QStringLiteral("GOT: ")),
              QStringList{QStringLiteral("GOT: * daemon not running; starting now at tcp:5037\n"
                                         "* daemon started successfully\n")});

    EXPECT_EQ(startWith("echo '* DAEMON STARTED SUCCESSFULLY *'\n"), true);
    // Standard error is merged into the same output.
    EXPECT_EQ(startWith("echo 'daemon started successfully' >&2\n"), true);
    // Output that arrives late is still read to the end.
    EXPECT_EQ(startWith("echo starting; sleep 0.2; echo 'daemon started successfully'\n"), true);

    EXPECT_EQ(startWith("echo 'adb server is already running'\n"), false);
    EXPECT_EQ(startWith("echo 'daemon started'; exit 1\n"), false);
}

TEST_F(UtilsTest, StartLeavesStandardInputConnectedButUnused)
{
    LogCapture log;
    // A closed input gives end of file at once (status 1); an open, silent pipe makes read time out (>128).
    EXPECT_EQ(startWith("exec /bin/bash -c 'read -t 1 line; echo \"status=$?\"'\n"), false);
    const QStringList got = log.startingWith(QStringLiteral("GOT: "));
    ASSERT_EQ(got.size(), 1);
    const int status = got.first().mid(QStringLiteral("GOT: status=").size()).trimmed().toInt();
    EXPECT_GT(status, 128) << got.first().toStdString();
}

TEST_F(UtilsTest, StartFailsWhenTheToolIsMissingOrCannotRun)
{
    LogCapture log;
    // Not found: false at once, on the calling thread.
    bool called = false;
    bool result = true;
    Utils::startAdb(std::nullopt, [&](bool success) {
        called = true;
        result = success;
    });
    EXPECT_TRUE(called);
    EXPECT_FALSE(result);
    EXPECT_EQ(log.lines(), QStringList{QStringLiteral("adb not found")});

    // Cannot be launched: false, later, on the main thread, with the failure logged.
    bool onMainThread = false;
    EXPECT_EQ(start(bin() + QStringLiteral("/missing-adb"), &onMainThread), false);
    EXPECT_TRUE(onMainThread);
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
    const QString tool = bin() + QStringLiteral("/adb");
    const QString runs = m_dir.filePath(QStringLiteral("runs"));
    makeExecutable(
        tool,
        QStringLiteral("echo \"$*\" >> '%1'; sleep 0.3; echo 'daemon started successfully'\n").arg(runs).toUtf8());
    std::optional<bool> first;
    std::optional<bool> second;
    Utils::startAdb(
        tool, [&](bool ok) { first = ok; }, 5555);
    Utils::startAdb(
        tool, [&](bool ok) { second = ok; }, 5555);
    ASSERT_TRUE(QTest::qWaitFor([&] { return first && second; }, 10000));
    EXPECT_TRUE(*first);
    EXPECT_TRUE(*second);
    QFile file(runs);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("-P 5555 start-server\n"));
}
