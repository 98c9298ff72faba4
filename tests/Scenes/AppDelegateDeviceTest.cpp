// SPDX-License-Identifier: MIT
// The main window against the real adb server and a simulated device: streaming, the cable pulled
// and put back with no line lost or shown twice, and Stop. The other device changes are played
// against a scripted server in AppDelegateStateTest.
#include "Session/ReconnectPolicy.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "support/AdbTestEnv.h"
#include "support/Dialogs.h"
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
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
    const qsizetype beforeDrop = deviceRows().size();

    // It comes back: streaming again, the log kept.
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return deviceRows().size() > beforeDrop + 40; }, 15000));

    // Every device line once, in the device's order, nothing missing in between. The one exception is
    // the datasource's rule for the replay: a replayed line whose time equals the last kept time is
    // kept (it ends the duplicate check), so the last line before the drop may appear once more.
    QStringList shown;
    int repeats = 0;
    for (const LogEntry &e : deviceRows()) {
        const QString key = lineKey(e);
        repeats += !shown.isEmpty() && shown.back() == key;
        if (shown.isEmpty() || shown.back() != key)
            shown << key;
    }
    EXPECT_LE(repeats, 1);
    const AdbTestEnv::AdbResult dump = env().runAdbOn(serial, {"logcat", "-d", "-v", "threadtime"});
    ASSERT_EQ(dump.exitCode, 0);
    QStringList expected;
    for (const QString &line : dump.text().remove('\r').split('\n'))
        if (const QString key = dumpKey(line); !key.isEmpty())
            expected << key;
    // The device keeps only its newest lines, and the first stream clears the log as it starts (which
    // may drop a few replayed lines): compare from the first shown line the device still has. That
    // span includes the drop and the return.
    qsizetype from = 0;
    while (from < shown.size() && !expected.contains(shown[from]))
        ++from;
    ASSERT_LT(from, shown.size());
    const QStringList tail = shown.mid(from);
    ASSERT_GT(tail.size(), shown.size() - beforeDrop) << "the compared span must reach back before the drop";
    const QStringList want = expected.mid(expected.indexOf(tail.front()), tail.size());
    const auto [got, wanted] = std::mismatch(tail.begin(), tail.end(), want.begin(), want.end());
    EXPECT_TRUE(got == tail.end() && wanted == want.end())
        << "at " << (got - tail.begin()) << " of " << tail.size() << ": shown "
        << (got == tail.end() ? "nothing" : got->toStdString()) << ", the device has "
        << (wanted == want.end() ? "nothing" : wanted->toStdString());

    // Stop: offline.
    app->window()->actions().connect->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [OFFLINE]"); }, 10000)) << title().toStdString();
    // The device entry's title: with its model, or the serial alone when the stream came back before the
    // fresh device list had looked the model up again.
    EXPECT_TRUE(title().startsWith("Pixel Sim - " + serial) || title() == serial + " [OFFLINE]") << title().toStdString();
    EXPECT_EQ(button(), "Run");
    EXPECT_FALSE(app->autoReconnect());
}
