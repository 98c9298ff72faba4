// SPDX-License-Identifier: MIT
// Reports left by a crash, offered at the next start: the sheet, the crash POST to a real local HTTP
// server, and what stays on disk without a server. (The report written by a real signal is checked
// through a child process in CrashReportsIntegrationTest.)
#include "Analytics/AnalyticsHelper.h"
#include "Helpers/Settings.h"
#include "Scenes/CrashReportSheet.h"
#include "support/Dialogs.h"
#include "support/HttpRecorder.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

// Writes a report as the crash handler does; `age` seconds old.
QString writeReport(const QString &folder, int number, const char *signal, int age)
{
    const QString path = writeTestFile(QStringLiteral("%1/crash-%2-1.txt").arg(folder).arg(number),
                                       QByteArray("signal: 11 ") + signal +
                                           "\nversion: 0.1.0\nrevision: abc1234\ntime: 1700000000\nrun: 42\n"
                                           "backtrace:\nquillfern(+0x1)[0x2]\nlibc.so.6(+0x3)[0x4]\n"
                                           "log:\nline one\nline two\n");
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadWrite));
    EXPECT_TRUE(file.setFileTime(QDateTime::currentDateTime().addSecs(-age), QFileDevice::FileModificationTime));
    return path;
}

class CrashReportSheetTest : public ::testing::Test
{
protected:
    void TearDown() override { Settings::remove(SettingsKey::analyticsServer); }

    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("crashes"));
    HttpRecorder server;
    QWidget window;
};

TEST_F(CrashReportSheetTest, SendQueuesTheCrashPostAndEitherAnswerRemovesTheReport)
{
    Settings::setValue(SettingsKey::analyticsServer, server.baseUrl());
    AnalyticsHelper analytics({dir.filePath(QStringLiteral("data")), QStringLiteral("1.0"), {}});
    analytics.registerApp();
    window.show();
    const QString older = writeReport(folder, 1, "SIGABRT", 100);
    const QString newer = writeReport(folder, 2, "SIGSEGV", 10);

    CrashReportSheet::offerPendingReports(&window, analytics, folder);
    QPointer<CrashReportSheet> first = dialogs::waitFor<CrashReportSheet>(&window);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->windowTitle(), "Send Crash Report?");
    EXPECT_TRUE(first->sendButton()->isDefault());
    EXPECT_EQ(first->dontSendButton()->text(), "Don't Send");
    EXPECT_TRUE(first->details()->toPlainText().contains("_name: SIGSEGV\n")) << "newest first, shown as sent";
    EXPECT_TRUE(first->details()->toPlainText().contains("_error:\n    quillfern(+0x1)[0x2]\n    libc.so.6(+0x3)[0x4]\n"));
    first->sendButton()->click();
    EXPECT_FALSE(QFile::exists(newer));

    CrashReportSheet *second = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] {
        second = dialogs::visible<CrashReportSheet>(&window);
        return second && second != first;
    }, 5000));
    EXPECT_TRUE(second->details()->toPlainText().contains("_name: SIGABRT\n"));
    second->dontSendButton()->click();
    EXPECT_FALSE(QFile::exists(older));

    // Ten events make a request after whatever was queued before them.
    for (int i = 0; i < 10; ++i)
        analytics.logEvent(QStringLiteral("x"));
    ASSERT_TRUE(QTest::qWaitFor([&] {
        return !server.requests().isEmpty() && server.requests().last().has(QStringLiteral("events"));
    }, 10000));
    QList<HttpRequest> posts;
    for (const HttpRequest &request : server.requests())
        if (request.method == "POST")
            posts << request;
    ASSERT_EQ(posts.size(), 1);
    QJsonObject crash = QJsonDocument::fromJson(posts[0].param(QStringLiteral("crash")).toUtf8()).object();
    for (const char *machine : {"_device", "_os", "_os_version"}) // this machine's: only their presence is fixed
        EXPECT_FALSE(crash.take(QLatin1String(machine)).toString().isEmpty()) << machine;
    // The version that crashed, not the running one.
    EXPECT_EQ(QJsonDocument(crash).toJson(QJsonDocument::Compact),
              R"({"_app_version":"0.1.0","_custom":{"revision":"abc1234"},)"
              R"("_error":"quillfern(+0x1)[0x2]\nlibc.so.6(+0x3)[0x4]","_logs":"line one\nline two",)"
              R"("_name":"SIGSEGV","_nonfatal":false,"_run":42})");
}

TEST_F(CrashReportSheetTest, WithoutAServerTheFiveNewestStayAndTheLogNamesThem)
{
    Settings::remove(SettingsKey::analyticsServer);
    AnalyticsHelper analytics({dir.filePath(QStringLiteral("data")), QStringLiteral("1.0"), {}});
    analytics.registerApp();
    QStringList newestFirst;
    for (int i = 0; i < 7; ++i)
        newestFirst << writeReport(folder, i, "SIGSEGV", 10 + i * 10);
    LogCapture log;
    CrashReportSheet::offerPendingReports(&window, analytics, folder);
    EXPECT_EQ(dialogs::visible<CrashReportSheet>(&window), nullptr);
    for (int i = 0; i < 7; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(QFile::exists(newestFirst[i]), i < 5);
        EXPECT_EQ(log.lines().filter(newestFirst[i]).size(), 1);
    }
}

} // namespace
