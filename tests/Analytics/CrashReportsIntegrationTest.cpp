// SPDX-License-Identifier: MIT
// A real Quillfern process killed by a real signal leaves a crash report; the next start without a
// usage statistics server keeps it and names it in the diagnostic log. The child runs offscreen in a
// private home, pointed at the test's adb server so that it never starts one of its own.
#include "Analytics/CrashReports.h"
#include "support/AdbTestEnv.h"
#include "support/TestFiles.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <csignal>

namespace {

class CrashReportsIntegrationTest : public AdbTest
{
protected:
    void SetUp() override
    {
        AdbTest::SetUp();
        writeTestFile(home.filePath(QStringLiteral("config/Quillfern/Quillfern.conf")),
                      "[General]\nadbServer=127.0.0.1\nadbPort=" + QByteArray::number(env().serverPort()) + "\n");
    }
    QString dataFolder() const { return home.filePath(QStringLiteral("data/Quillfern/Quillfern")); }
    QString logText() const
    {
        QFile file(dataFolder() + QStringLiteral("/logs/Quillfern.log"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    // Starts the program and returns once it has logged `line` (its crash handler is in place by then).
    std::unique_ptr<QProcess> launch(const QString &line)
    {
        auto process = std::make_unique<QProcess>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("QUILLFERN_LOG_QUIET"), QStringLiteral("1"));
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(QStringLiteral(QF_APP_PATH), {});
        EXPECT_TRUE(process->waitForStarted()) << process->errorString().toStdString();
        const qsizetype seen = logText().count(line);
        EXPECT_TRUE(QTest::qWaitFor([&] { return logText().count(line) > seen; }, 20000))
            << "no \"" << line.toStdString() << "\" in\n"
            << logText().toStdString();
        return process;
    }

    QTemporaryDir home;
};

TEST_F(CrashReportsIntegrationTest, RealSignalsLeaveReportsThatTheNextStartKeepsWithoutAServer)
{
    const QString folder = dataFolder() + QStringLiteral("/crashes");
    const struct
    {
        int signal;
        const char *name;
    } cases[] = {{SIGSEGV, "SIGSEGV"}, {SIGABRT, "SIGABRT"}};
    QStringList reports;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<QProcess> app = launch(QStringLiteral("launch: "));
        ::kill(pid_t(app->processId()), c.signal);
        ASSERT_TRUE(app->waitForFinished(20000));
        EXPECT_EQ(app->exitStatus(), QProcess::CrashExit);

        reports = CrashReports(folder).pending();
        ASSERT_EQ(reports.size(), &c - cases + 1);
        const std::optional<CrashReport> report = CrashReports::read(reports.first());
        ASSERT_TRUE(report);
        EXPECT_EQ(QStringLiteral("%1 %2 %3").arg(report->signal).arg(report->signalName, report->version),
                  QStringLiteral("%1 %2 " QF_EXPECTED_VERSION).arg(c.signal).arg(QLatin1String(c.name)));
        EXPECT_FALSE(report->revision.isEmpty());
        EXPECT_GE(report->runSeconds, 0);
        EXPECT_NEAR(double(report->time), double(QDateTime::currentSecsSinceEpoch()), 120.0);
        EXPECT_TRUE(report->backtrace.contains(QStringLiteral("quillfern"))) << report->backtrace.toStdString();
        EXPECT_TRUE(report->log.contains(QStringLiteral("launch: "))) << report->log.toStdString();
    }

    // No server in the settings: both stay, and the log says where.
    std::unique_ptr<QProcess> app = launch(QStringLiteral("crash report kept"));
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return logText().contains(reports[0]) && logText().contains(reports[1]); }, 10000));
    app->terminate();
    ASSERT_TRUE(app->waitForFinished(20000));
    EXPECT_EQ(CrashReports(folder).pending(), reports);
}

} // namespace
