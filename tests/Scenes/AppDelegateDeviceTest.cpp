// SPDX-License-Identifier: MIT
// The main window against the real adb server and simulated devices: streaming, the cable pulled
// and put back, another device appearing meanwhile, Stop, and the picker with two devices.
#include "Session/ReconnectPolicy.h"
#include "Scenes/DevicePickerSheet.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "Scenes/SelectableTableView.h"
#include "support/AdbTestEnv.h"
#include "support/Dialogs.h"
#include "support/LogCapture.h"
#include "support/ManualTime.h"

#include <QAction>
#include <QPushButton>
#include <QRegularExpression>
#include <QSet>
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
        options.reconnectTimer = takeTimer();
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
    QMessageBox *visibleMessageBox() const { return dialogs::visible<QMessageBox>(app->window()); }

    ManualTimer *timer = nullptr; // owned by the delegate
    std::unique_ptr<RepeatingTimer> takeTimer()
    {
        auto owned = std::make_unique<ManualTimer>();
        timer = owned.get();
        return owned;
    }
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateDeviceTest, StreamsPausesAndReturnsToTheSameDeviceWithoutGapsOrRepeats)
{
    const QString serial = startDevice({"--rate", "40", "--buffer", "5000", "--drop-after", "3", "--return-after", "2"});
    ASSERT_FALSE(serial.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    EXPECT_EQ(button(), "Stop");
    // Named by the model once its lookup answers: "model - id" when the name was known as the stream
    // started, "id - model" when it arrived afterwards.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().contains("Pixel Sim"); }, 10000)) << title().toStdString();
    const QString deviceTitle = title();
    EXPECT_TRUE(deviceTitle == "Pixel Sim - " + serial || deviceTitle == serial + " - Pixel Sim") << deviceTitle.toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > 20; }, 10000));

    // The simulator drops off the server.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [PAUSED]"); }, 15000)) << title().toStdString();
    EXPECT_EQ(button(), "Stop");
    EXPECT_TRUE(timer->active);
    EXPECT_EQ(visibleMessageBox(), nullptr);
    const qsizetype beforeDrop = deviceRows().size();

    // It comes back: streaming again, the log kept.
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    EXPECT_FALSE(timer->active);
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > beforeDrop + 40; }, 15000));

    // Every device line once, in the device's order, nothing missing in between. The one exception is
    // the datasource's rule for the replay: a replayed line whose time equals the last kept time is
    // kept (it ends the duplicate check), so the last line before the drop may appear once more.
    QList<LogEntry> shown;
    int repeats = 0;
    for (const LogEntry &e : deviceRows()) {
        if (!shown.isEmpty() && lineKey(shown.back()) == lineKey(e)) {
            ++repeats;
            continue;
        }
        shown << e;
    }
    EXPECT_LE(repeats, 1);
    QSet<QString> seen;
    for (const LogEntry &e : shown) {
        EXPECT_FALSE(seen.contains(lineKey(e))) << "shown twice: " << lineKey(e).toStdString();
        seen.insert(lineKey(e));
    }
    const AdbTestEnv::AdbResult dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
    ASSERT_EQ(dump.exitCode, 0);
    QStringList expected;
    for (const QString &line : dump.text().split('\n')) {
        const QString key = dumpKey(line.trimmed().isEmpty() ? QString() : QString(line).remove('\r'));
        if (!key.isEmpty())
            expected << key;
    }
    // The device keeps only its newest lines: compare from the first shown line the device still has.
    // That span includes the drop and the return.
    const QList<LogEntry> &all = shown;
    qsizetype from = 0;
    qsizetype firstAt = -1;
    for (; from < all.size() && firstAt < 0; ++from)
        firstAt = expected.indexOf(lineKey(all[from]));
    ASSERT_GE(firstAt, 0);
    const QList<LogEntry> shownTail = all.mid(from - 1);
    ASSERT_GT(shownTail.size(), all.size() - beforeDrop) << "the compared span must reach back before the drop";
    const qsizetype lastAt = expected.indexOf(lineKey(shownTail.back()));
    ASSERT_GE(lastAt, firstAt) << lineKey(shownTail.back()).toStdString();
    expected = expected.mid(firstAt, lastAt - firstAt + 1);
    for (qsizetype i = 0; i < std::min(shownTail.size(), expected.size()); ++i)
        ASSERT_EQ(lineKey(shownTail[i]).toStdString(), expected[i].toStdString())
            << "at " << i << " after " << lineKey(shownTail[std::max<qsizetype>(0, i - 1)]).toStdString();
    ASSERT_EQ(qsizetype(shownTail.size()), expected.size());

    // Stop: offline.
    app->window()->actions().connect->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [OFFLINE]"); }, 10000)) << title().toStdString();
    // The device entry's title: with its model, or the serial alone when the stream came back before the
    // fresh device list had looked the model up again.
    EXPECT_TRUE(title().startsWith("Pixel Sim - " + serial) || title() == serial + " [OFFLINE]") << title().toStdString();
    EXPECT_EQ(button(), "Run");
    EXPECT_FALSE(app->autoReconnect());
}

TEST_F(AppDelegateDeviceTest, EveryReplayedLineSurvivesTheStartOfANewDevice)
{
    // Only the replayed buffer, no live lines: what the window shows must be exactly the device's log.
    const QString serial = startDevice({"--buffer", "4000", "--lines", "0"});
    ASSERT_FALSE(serial.isEmpty());
    const AdbTestEnv::AdbResult dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
    ASSERT_EQ(dump.exitCode, 0);
    QStringList expected;
    for (const QString &line : dump.text().split('\n')) {
        const QString key = dumpKey(QString(line).remove('\r'));
        if (!key.isEmpty())
            expected << key;
    }
    ASSERT_EQ(expected.size(), 4000);
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    QStringList shown;
    const auto allShown = [&] {
        shown.clear();
        for (const LogEntry &e : deviceRows())
            shown << lineKey(e);
        return shown.size() >= expected.size();
    };
    EXPECT_TRUE(QTest::qWaitFor(allShown, 15000)) << shown.size() << " of " << expected.size() << " lines shown";
    ASSERT_FALSE(shown.isEmpty());
    EXPECT_EQ(shown.first().toStdString(), expected.first().toStdString());
    EXPECT_EQ(shown, expected);
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
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [PAUSED]"); }, 15000)) << title().toStdString();
    for (int tick = 1; tick <= 3; ++tick) {
        ASSERT_TRUE(timer->active) << "gave up retrying before tick " << tick;
        app->onReconnectTimerTick();
        ASSERT_TRUE(QTest::qWaitFor([&] { return log.count("adb server not started; retrying") == tick; }, 10000))
            << "tick " << tick << ": " << log.lines().join(" | ").toStdString();
        EXPECT_TRUE(title().endsWith(" [PAUSED]")) << title().toStdString();
    }
    EXPECT_EQ(visibleMessageBox(), nullptr);
    EXPECT_EQ(button(), "Stop");

    // Someone starts it again on the same port and the device registers again: the retry finds it.
    ASSERT_EQ(env().runAdb({"start-server"}).exitCode, 0);
    ASSERT_EQ(env().runAdb({"connect", serial}).exitCode, 0);
    ASSERT_TRUE(env().waitForState(serial, "device"));
    const qsizetype before = deviceRows().size();
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > before + 40; }, 15000));

    // Nothing lost and nothing repeated across the outage (but the one line the replay rule keeps).
    const AdbTestEnv::AdbResult dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
    ASSERT_EQ(dump.exitCode, 0);
    QStringList expected;
    for (const QString &line : dump.text().split('\n')) {
        const QString key = dumpKey(QString(line).remove('\r'));
        if (!key.isEmpty())
            expected << key;
    }
    QStringList shown;
    for (const LogEntry &e : deviceRows())
        shown << lineKey(e);
    shown.removeDuplicates();
    EXPECT_GE(deviceRows().size() - shown.size(), 0);
    EXPECT_LE(deviceRows().size() - shown.size(), 1);
    // From the oldest shown line the device still has to the newest shown: every device line is there.
    qsizetype from = 0;
    while (from < shown.size() && !expected.contains(shown[from]))
        ++from;
    ASSERT_LT(from, shown.size());
    const qsizetype first = expected.indexOf(shown[from]);
    const qsizetype last = expected.indexOf(shown.back());
    ASSERT_GE(last, first);
    EXPECT_EQ(shown.mid(from), expected.mid(first, last - first + 1));
}

TEST_F(AppDelegateDeviceTest, WhilePausedAnotherDeviceIsNotTaken)
{
    const QString first = startDevice({"--rate", "20"});
    ASSERT_FALSE(first.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(first); }, 15000));
    ASSERT_TRUE(env().removeDevice(first));
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [PAUSED]"); }, 15000)) << title().toStdString();

    const QString second = startDevice({"--rate", "20"});
    ASSERT_FALSE(second.isEmpty());
    // Three ticks, each listing only the new device.
    LogCapture log;
    for (int i = 0; i < 3; ++i) {
        const int handled = log.count("Connected Devices:");
        app->onReconnectTimerTick();
        ASSERT_TRUE(QTest::qWaitFor([&] { return log.count("Connected Devices:") > handled; }, 5000));
    }
    EXPECT_GE(log.count("device change - don't automatically reconnect to new device!"), 1);
    EXPECT_FALSE(app->logDatasource()->isLogging());
    EXPECT_EQ(app->reconnectPolicy()->lastDeviceConnectedId(), first);
    EXPECT_TRUE(title().endsWith(" [PAUSED]"));
    EXPECT_EQ(visibleMessageBox(), nullptr);
    EXPECT_EQ(button(), "Stop");

    // Stop while paused: offline at once, and Run then takes the new device.
    app->onConnectButtonPressed();
    EXPECT_TRUE(title().endsWith(" [OFFLINE]"));
    EXPECT_EQ(button(), "Run");
    app->onConnectButtonPressed();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(second); }, 15000)) << title().toStdString();
}

TEST_F(AppDelegateDeviceTest, PickerWithTwoDevices)
{
    const QString a = startDevice({"--rate", "10"});
    const QString b = startDevice({"--rate", "10", "--model", "Tablet Sim"});
    ASSERT_FALSE(a.isEmpty());
    ASSERT_FALSE(b.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->devicePickerSheet() && app->devicePickerSheet()->isVisible(); }, 15000));
    DevicePickerSheet *picker = app->devicePickerSheet();
    const QStringList titles = picker->deviceTitles();
    ASSERT_EQ(titles.size(), 2);
    const int indexOfB = titles[0].endsWith(b) ? 0 : 1;
    EXPECT_TRUE(titles[indexOfB].endsWith(b));
    EXPECT_EQ(title(), "No devices connected");
    picker->setSelectedIndex(indexOfB);
    picker->connectButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(b); }, 15000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return title() == b + " - Tablet Sim" || title() == "Tablet Sim - " + b; }, 10000))
        << title().toStdString();
}
