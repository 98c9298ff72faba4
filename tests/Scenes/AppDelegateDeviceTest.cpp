// SPDX-License-Identifier: MIT
// The main window against the real adb server and simulated devices: streaming, the cable pulled and
// put back, the server stopped and started again, each with no line lost or shown twice.
// The other device changes are played against a scripted server in AppDelegateStateTest.
#include "Session/ReconnectPolicy.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "support/AdbTestEnv.h"
#include "support/Dialogs.h"
#include "support/LogCapture.h"
#include "support/ManualTime.h"

#include <QAction>
#include <QRegularExpression>
#include <QTest>

namespace {

QString lineKey(const LogEntry &e)
{
    // The parser shows a process's main thread (tid == pid) as "-".
    const QString tid = e.value(LogEntry::Tid) == "-" ? e.value(LogEntry::Pid) : e.value(LogEntry::Tid);
    return e.value(LogEntry::Time) + '|' + e.value(LogEntry::Pid) + '|' + tid + '|' +
           e.value(LogEntry::Type) + '|' + e.value(LogEntry::Name).trimmed() + '|' + e.value(LogEntry::Text).trimmed();
}

// "MM-dd HH:mm:ss.SSS  pid  tid L tag: text" -> the same key as lineKey.
QString dumpKey(const QString &line)
{
    static const QRegularExpression re(
        QStringLiteral(R"(^(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})\s+(\d+)\s+(\d+)\s+([VDIWEFA])\s+(.*?)\s*:(?: |$)(.*)$)"));
    const QRegularExpressionMatch m = re.match(line);
    if (!m.hasMatch())
        return {};
    return m.captured(1) + '|' + m.captured(2) + '|' + m.captured(3) + '|' + m.captured(4) + '|' +
           m.captured(5).trimmed() + '|' + m.captured(6).trimmed();
}

class AppDelegateDeviceTest : public AdbTest
{
protected:
    void SetUp() override
    {
        AdbTest::SetUp();
        QuillfernAppDelegate::Options options;
        auto ownedTimer = std::make_unique<ManualTimer>();
        timer = ownedTimer.get();
        options.reconnectTimer = std::move(ownedTimer);
        options.startAdb = [](std::function<void(bool)> done) { done(false); };
        options.openUrl = [](const QUrl &) {};
        app = std::make_unique<QuillfernAppDelegate>(std::move(options));
    }
    void TearDown() override
    {
        app.reset();
        AdbTest::TearDown();
    }
    void launch()
    {
        app->applicationDidFinishLaunching();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));
    }
    QString title() const { return app->window()->windowTitle(); }
    QString button() const { return app->window()->actions().connect->text(); }
    bool streamingFrom(const QString &serial) const
    {
        // The timer stops only when the stream has really started (a model name may retitle earlier).
        return app->logDatasource()->isLogging() && app->reconnectPolicy()->lastDeviceConnectedId() == serial &&
               !timer->active && !title().contains('[');
    }
    // Plays the 5-second timer, faster: ticks while it runs until `done` holds.
    bool tickUntil(const std::function<bool()> &done, int timeoutMs)
    {
        QElapsedTimer clock;
        clock.start();
        while (!done() && clock.elapsed() < timeoutMs) {
            if (timer->active)
                app->onReconnectTimerTick();
            (void)QTest::qWaitFor(done, 700); // the loop checks the outcome itself
        }
        return done();
    }
    QList<LogEntry> deviceRows() const
    {
        QList<LogEntry> rows;
        for (const LogEntry &e : app->tableController()->model()->rows())
            if (e.value(LogEntry::Type) != "QF" && !e.value(LogEntry::Time).isEmpty()) // not "--------- beginning of"
                rows << e;
        return rows;
    }

    QStringList shownKeys() const
    {
        QStringList keys;
        for (const LogEntry &e : deviceRows())
            keys << lineKey(e);
        return keys;
    }
    // The device's own log, one key per line.
    QStringList deviceLog(const QString &serial)
    {
        const AdbTestEnv::AdbResult dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
        EXPECT_EQ(dump.exitCode, 0);
        QStringList keys;
        for (const QString &line : dump.text().remove('\r').split('\n'))
            if (const QString key = dumpKey(line); !key.isEmpty())
                keys << key;
        return keys;
    }
    // Empty when both hold the same lines, else where they first differ.
    static std::string firstDifference(const QStringList &shown, const QStringList &want)
    {
        const auto [got, wanted] = std::mismatch(shown.begin(), shown.end(), want.begin(), want.end());
        if (got == shown.end() && wanted == want.end())
            return {};
        return QStringLiteral("at %1 of %2: shown %3, the device has %4")
            .arg(got - shown.begin()).arg(shown.size())
            .arg(got == shown.end() ? "nothing" : *got, wanted == want.end() ? "nothing" : *wanted).toStdString();
    }
    // The keys with the lines that share a time stamp taken as a set (sorted, each once): logcat's
    // order among lines of one millisecond is not kept across a replay. *repeats counts the lines
    // dropped as seen before within their time.
    static QStringList byTime(const QStringList &keys, int *repeats)
    {
        QStringList out;
        QStringList group;
        const auto flush = [&] {
            group.sort();
            const qsizetype all = group.size();
            group.removeDuplicates();
            *repeats += int(all - group.size());
            out += group;
            group.clear();
        };
        for (const QString &key : keys) {
            if (!group.isEmpty() && key.section(u'|', 0, 0) != group.front().section(u'|', 0, 0))
                flush();
            group << key;
        }
        flush();
        return out;
    }
    // Every device line once, in the device's order, nothing missing in between. The one exception is
    // the datasource's rule for the replay: a replayed line whose time equals the last kept time is
    // kept (it ends the duplicate check), so the lines at the last time before a break may appear
    // once more, in the device's order among themselves. The device keeps only its newest lines:
    // compare from the first shown line the device still has; that span must reach back before the
    // row `breakRow`.
    void expectEveryLineOnceInOrder(const QString &serial, qsizetype breakRow)
    {
        int repeats = 0;
        const QStringList shown = byTime(shownKeys(), &repeats);
        EXPECT_LE(repeats, 3); // the lines of one millisecond, at most
        int deviceRepeats = 0;
        const QStringList expected = byTime(deviceLog(serial), &deviceRepeats);
        qsizetype from = 0;
        while (from < shown.size() && !expected.contains(shown[from]))
            ++from;
        ASSERT_LT(from, shown.size());
        const QStringList tail = shown.mid(from);
        ASSERT_GT(tail.size(), shown.size() - breakRow) << "the compared span must reach back before the break";
        EXPECT_EQ(firstDifference(tail, expected.mid(expected.indexOf(tail.front()), tail.size())), "");
    }

    ManualTimer *timer = nullptr; // owned by the delegate
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateDeviceTest, StreamsPausesAndReturnsToTheSameDeviceWithoutGapsOrRepeats)
{
    const QString serial = startDevice({"--rate", "40", "--buffer", "5000", "--drop-after", "3", "--return-after", "2"});
    ASSERT_FALSE(serial.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    // Named by the model once its lookup answers: "model - id" when the name was known as the stream
    // started, "id - model" when it arrived afterwards.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().contains("Pixel Sim"); }, 10000)) << title().toStdString();
    const QString deviceTitle = title();
    EXPECT_TRUE(deviceTitle == "Pixel Sim - " + serial || deviceTitle == serial + " - Pixel Sim") << deviceTitle.toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > 20; }, 10000));

    // The simulator drops off the server.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [AWAY - RETRYING]"); }, 15000)) << title().toStdString();
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
    const qsizetype beforeDrop = deviceRows().size();

    // It comes back: streaming again, the log kept.
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > beforeDrop + 40; }, 15000));

    expectEveryLineOnceInOrder(serial, beforeDrop);
}

TEST_F(AppDelegateDeviceTest, EveryReplayedLineSurvivesTheStartOfANewDevice)
{
    // Only the replayed buffer, no live lines: what the window shows must be exactly the device's log.
    const QString serial = startDevice({"--buffer", "4000", "--lines", "0"});
    ASSERT_FALSE(serial.isEmpty());
    const QStringList expected = deviceLog(serial);
    ASSERT_EQ(expected.size(), 4000);
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() >= expected.size(); }, 15000))
        << deviceRows().size() << " of " << expected.size() << " lines shown";
    EXPECT_EQ(firstDifference(shownKeys(), expected), "");
}

TEST_F(AppDelegateDeviceTest, AServerThatStopsAndComesBackBringsTheStreamBackByItself)
{
    const QString serial = startDevice({"--rate", "40", "--buffer", "2000"});
    ASSERT_FALSE(serial.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > 2020; }, 10000));

    // The server goes away. Starting it ourselves fails here (the fixture's start does nothing), so
    // the window keeps retrying instead of giving up with an alert.
    LogCapture log;
    ASSERT_EQ(env().runAdb({"kill-server"}).exitCode, 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [AWAY - RETRYING]"); }, 15000)) << title().toStdString();
    for (int tick = 1; tick <= 3; ++tick) {
        ASSERT_TRUE(timer->active) << "gave up retrying before tick " << tick;
        app->onReconnectTimerTick();
        ASSERT_TRUE(QTest::qWaitFor([&] { return log.count("adb server not started; retrying") == tick; }, 10000))
            << "tick " << tick << ": " << log.lines().join(" | ").toStdString();
        EXPECT_TRUE(title().endsWith(" [AWAY - RETRYING]")) << title().toStdString();
    }
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
    EXPECT_EQ(button(), "Cancel");

    // Someone starts it again on the same port and the device registers again: the retry finds it.
    ASSERT_EQ(env().runAdb({"start-server"}).exitCode, 0);
    ASSERT_EQ(env().runAdb({"connect", serial}).exitCode, 0);
    ASSERT_TRUE(env().waitForState(serial, "device"));
    const qsizetype before = deviceRows().size();
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > before + 40; }, 15000));
    expectEveryLineOnceInOrder(serial, before);
}
