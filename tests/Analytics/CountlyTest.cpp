// SPDX-License-Identifier: MIT
// The analytics client against a real local HTTP server that records every request, with time driven
// by hand: the request templates, sessions, events in tens, retries and the queue across restarts.
#include "Analytics/Countly.h"
#include "Analytics/CountlyConnectionQueue.h"
#include "Analytics/CountlyDB.h"
#include "Analytics/CountlyDeviceInfo.h"
#include "support/HttpRecorder.h"
#include "support/LogCapture.h"
#include "support/ManualTime.h"
#include "support/TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace {

const QString AppKey = QStringLiteral("0123456789abcdef0123456789abcdef01234567");
const QString DeviceId = QStringLiteral("00112233445566778899aabbccddeeff00112233");
constexpr qint64 Now = 1700000000;

QJsonArray eventsOf(const HttpRequest &request)
{
    return QJsonDocument::fromJson(request.param(QStringLiteral("events")).toUtf8()).array();
}

// A request in a few words: "begin", "update 60", "end 11", "events a,b", "crash".
QString describe(const HttpRequest &request)
{
    const QString duration = request.param(QStringLiteral("session_duration"));
    if (request.has(QStringLiteral("begin_session")) || request.has(QStringLiteral("crash")))
        return request.has(QStringLiteral("crash")) ? QStringLiteral("crash") : QStringLiteral("begin");
    if (!duration.isEmpty())
        return (request.has(QStringLiteral("end_session")) ? QStringLiteral("end ") : QStringLiteral("update ")) +
               duration;
    QStringList keys;
    for (const QJsonValue &event : eventsOf(request))
        keys << event[QStringLiteral("key")].toString();
    return QStringLiteral("events ") + keys.join(QLatin1Char(','));
}

class CountlyTest : public ::testing::Test
{
protected:
    std::unique_ptr<Countly> makeClient()
    {
        Countly::Environment environment;
        auto ownedTimer = std::make_unique<ManualTimer>();
        timer = ownedTimer.get();
        environment.timer = std::move(ownedTimer);
        environment.clock = &clock;
        environment.unixTime = [] { return Now; };
        return std::make_unique<Countly>(dir.filePath(QStringLiteral("Countly.sqlite")), std::move(environment));
    }
    void start(Countly &client, const QString &host) { client.start(AppKey, host, DeviceId, metrics); }
    QStringList received() const
    {
        QStringList out;
        for (const HttpRequest &request : server.requests())
            out << describe(request);
        return out;
    }
    // Waits until the client has nothing in flight and nothing queued.
    static bool drained(Countly &client)
    {
        return QTest::qWaitFor([&] { return !client.connectionQueue().isSending() && client.db().requestCount() == 0; },
                               10000);
    }

    QTemporaryDir dir;
    HttpRecorder server;
    ManualClock clock{5000};
    ManualTimer *timer = nullptr;
    const QByteArray metrics = CountlyDeviceInfo::metrics(QStringLiteral("1.2.3"));
};

TEST_F(CountlyTest, SessionStartCarriesTheTemplateAndTheLinuxMetrics)
{
    auto client = makeClient();
    start(*client, server.baseUrl() + QStringLiteral("/"));
    ASSERT_TRUE(server.waitForRequests(1));
    const HttpRequest &request = server.requests().first();
    EXPECT_EQ((request.method + ' ' + request.target).toStdString(),
              ("GET /i?app_key=" + AppKey.toLatin1() + "&device_id=" + DeviceId.toLatin1() +
               "&timestamp=1700000000&sdk_version=15.06.01&begin_session=1&metrics=" +
               QUrl::toPercentEncoding(QString::fromUtf8(metrics)))
                  .toStdString());
    QJsonObject sent = QJsonDocument::fromJson(request.param(QStringLiteral("metrics")).toUtf8()).object();
    EXPECT_FALSE(sent.take(QStringLiteral("_device")).toString().isEmpty());
    // No screen in this program: no "_resolution"; never a "_carrier".
    EXPECT_EQ(QJsonDocument(sent).toJson(QJsonDocument::Compact),
              QStringLiteral(R"({"_app_version":"1.2.3","_locale":"%1","_os":"Linux","_os_version":"%2"})")
                  .arg(QLocale::system().name(), QSysInfo::productVersion())
                  .toUtf8());
}

TEST_F(CountlyTest, SessionTimelineWithEventsInTensAndSuspension)
{
    auto client = makeClient();
    start(*client, server.baseUrl());
    ASSERT_TRUE(drained(*client));
    EXPECT_TRUE(timer->active);
    EXPECT_EQ(timer->lastInterval, std::chrono::milliseconds(60000));

    for (int i = 0; i < 9; ++i)
        client->recordEvent(QStringLiteral("e%1").arg(i));
    EXPECT_EQ(client->db().requestCount(), 0) << "nine events wait";
    client->recordEvent(QStringLiteral("e9"), 1, QMap<QString, QString>{{"device", "emu-A"}});
    ASSERT_TRUE(drained(*client));

    // 60.7 s, then 60.5 s: whole seconds sent, the fraction carried (0.7 + 0.5 = 1.2).
    clock.advanceMs(60700);
    client->recordEvent(QStringLiteral("late"));
    timer->fire();
    clock.advanceMs(60500);
    timer->fire();
    // Leaving the application: waiting events, then the end with 10.9 + 0.2 s.
    client->recordEvent(QStringLiteral("bye"));
    clock.advanceMs(10900);
    client->suspend();
    clock.advanceMs(30000);
    timer->fire(); // suspended: no accounting
    client->suspend();
    client->resume();
    clock.advanceMs(60000);
    timer->fire();
    ASSERT_TRUE(drained(*client));

    EXPECT_EQ(received(), QStringList({"begin", "events e0,e1,e2,e3,e4,e5,e6,e7,e8,e9", "update 60", "events late",
                                       "update 61", "events bye", "end 11", "begin", "update 60"}));
    const QJsonArray first = eventsOf(server.requests().at(1));
    EXPECT_EQ(QJsonDocument(first.first().toObject()).toJson(QJsonDocument::Compact).toStdString(),
              R"({"count":1,"key":"e0","timestamp":1700000000})");
    EXPECT_EQ(QJsonDocument(first.last().toObject()).toJson(QJsonDocument::Compact).toStdString(),
              R"({"count":1,"key":"e9","segmentation":{"device":"emu-A"},"timestamp":1700000000})");
}

TEST_F(CountlyTest, FailedRequestsStayFirstAndGoInOrderWhenTheServerIsBack)
{
    server.stop();
    auto client = makeClient();
    start(*client, server.baseUrl());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !client->connectionQueue().isSending(); }, 10000));
    for (int i = 0; i < 20; ++i)
        client->recordEvent(QStringLiteral("e%1").arg(i / 10)); // two events requests, both while down
    ASSERT_TRUE(QTest::qWaitFor([&] { return !client->connectionQueue().isSending(); }, 10000));
    EXPECT_EQ(client->db().requestCount(), 3);
    EXPECT_TRUE(server.requests().isEmpty());

    ASSERT_TRUE(server.restart());
    clock.advanceMs(60000);
    timer->fire(); // the next tick sends everything, oldest first
    ASSERT_TRUE(drained(*client));
    EXPECT_EQ(received(), QStringList({"begin", "events e0,e0,e0,e0,e0,e0,e0,e0,e0,e0",
                                       "events e1,e1,e1,e1,e1,e1,e1,e1,e1,e1", "update 60"}));
}

TEST_F(CountlyTest, QueueSurvivesARestart)
{
    {
        auto closed = makeClient();
        start(*closed, QString()); // no host: everything waits
        for (int i = 0; i < 13; ++i)
            closed->recordEvent(QStringLiteral("e"));
        EXPECT_EQ(closed->db().requestCount(), 2);
    } // three events were never queued as a request: they wait in the store too
    auto client = makeClient();
    start(*client, server.baseUrl());
    clock.advanceMs(60000);
    timer->fire();
    ASSERT_TRUE(drained(*client));
    EXPECT_EQ(received(), QStringList({"begin", "events e,e,e,e,e,e,e,e,e,e", "begin", "update 60", "events e,e,e"}));
}

TEST_F(CountlyTest, CorruptStoreIsReplacedOnce)
{
    for (const QByteArray &damage : {QByteArray(4096, '\x5a'), QByteArray("SQLite format 3\0garbage", 24)}) {
        SCOPED_TRACE(damage.left(16).toStdString());
        writeTestFile(dir.filePath(QStringLiteral("Countly.sqlite")), damage);
        LogCapture log;
        auto client = makeClient();
        EXPECT_TRUE(client->db().isPersistent());
        EXPECT_EQ(log.lines(LogLevel::Error).size(), 1) << log.lines().join('\n').toStdString();
        const qsizetype before = server.requests().size();
        start(*client, server.baseUrl());
        ASSERT_TRUE(drained(*client));
        ASSERT_EQ(server.requests().size(), before + 1);
        EXPECT_EQ(describe(server.requests().last()), "begin");
        client.reset();
        EXPECT_EQ(CountlyDB(dir.filePath(QStringLiteral("Countly.sqlite"))).requestCount(), 0) << "reusable afterwards";
    }
}

TEST_F(CountlyTest, UrlEncodingAndTheCrashPost)
{
    EXPECT_EQ(CountlyConnectionQueue::urlEncode("!*'();:@&=+$,/?%#[]"),
              "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D");
    EXPECT_EQ(CountlyConnectionQueue::urlEncode("a Z09-._~\"<>{}é"), "a%20Z09-._~%22%3C%3E%7B%7D%C3%A9");

    auto client = makeClient();
    start(*client, server.baseUrl());
    const QByteArray crash = R"({"_name":"SIGSEGV","_error":"frame #0 & more"})";
    client->recordCrashReport(crash);
    ASSERT_TRUE(drained(*client));
    ASSERT_EQ(received(), QStringList({"begin", "crash"}));
    const HttpRequest &post = server.requests().last();
    EXPECT_EQ((post.method + ' ' + post.target + ' ' + post.contentType).toStdString(),
              "POST /i application/x-www-form-urlencoded");
    EXPECT_EQ(post.body,
              "app_key=" + AppKey.toLatin1() + "&device_id=" + DeviceId.toLatin1() +
                  "&timestamp=1700000000&sdk_version=15.06.01&crash=" + CountlyConnectionQueue::urlEncode(crash));
}

} // namespace
