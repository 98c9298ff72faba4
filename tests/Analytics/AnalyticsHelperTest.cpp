// SPDX-License-Identifier: MIT
// The entry point on the GUI thread over the client on its own thread, against a real local HTTP server.
#include "Analytics/AnalyticsHelper.h"
#include "Helpers/Settings.h"
#include "support/HttpRecorder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

TEST(AnalyticsHelperTest, NothingIsRecordedOrSentWithoutAServer)
{
    QTemporaryDir dir;
    HttpRecorder server;
    Settings::remove(SettingsKey::analyticsServer);
    {
        AnalyticsHelper analytics({dir.path(), QStringLiteral("1.0"), {}});
        analytics.registerApp();
        EXPECT_FALSE(analytics.isEnabled());
        for (int i = 0; i < 12; ++i)
            analytics.logEvent(QStringLiteral("before"));
        analytics.sendCrashReport(R"({"_name":"SIGSEGV"})");

        // Naming the server starts a session there; only what comes after it is recorded.
        Settings::setValue(SettingsKey::analyticsServer, server.baseUrl());
        EXPECT_TRUE(analytics.isEnabled());
        const auto recorder = analytics.eventRecorder();
        for (int i = 0; i < 10; ++i)
            recorder(QStringLiteral("after"));
        ASSERT_TRUE(server.waitForRequests(2));
        EXPECT_EQ(server.requests().at(0).param(QStringLiteral("begin_session")), "1");
        EXPECT_EQ(server.requests().at(0).param(QStringLiteral("app_key")), QString::fromLatin1(AnalyticsHelper::AppKey));
        const QString deviceId = server.requests().at(0).param(QStringLiteral("device_id"));
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^[0-9a-f]{40}$")).match(deviceId).hasMatch()) << deviceId.toStdString();
        EXPECT_EQ(Settings::value(SettingsKey::openUDID).toString(), deviceId) << "kept for the next start";
        const QJsonArray events =
            QJsonDocument::fromJson(server.requests().at(1).param(QStringLiteral("events")).toUtf8()).array();
        ASSERT_EQ(events.size(), 10);
        for (const QJsonValue &event : events)
            EXPECT_EQ(event[QStringLiteral("key")], QStringLiteral("after"));

        // Cleared again: the session ends, and nothing more goes out.
        Settings::setValue(SettingsKey::analyticsServer, QString());
        EXPECT_FALSE(analytics.isEnabled());
        analytics.logEvent(QStringLiteral("off"));
    } // joins the analytics thread: whatever it was going to do is done
    EXPECT_EQ(server.requests().size(), 2);
    Settings::remove(SettingsKey::analyticsServer);
}

} // namespace
