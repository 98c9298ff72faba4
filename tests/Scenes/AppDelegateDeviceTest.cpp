// SPDX-License-Identifier: MIT
// The main window against the real adb server and simulated devices: streaming, the cable pulled and
// put back, the server stopped and started again, each with no line lost or shown twice (the devices
// number their lines, "seq N").
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
#include <QTest>

namespace {

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
    // The numbers of the device's "seq N" lines shown (not the program's rows, not "--------- beginning of").
    QList<qint64> shownSeqs() const
    {
        QList<qint64> seqs;
        for (const LogEntry &e : app->tableController()->model()->rows())
            if (e.value(LogEntry::Type) != "QF" && !e.value(LogEntry::Time).isEmpty())
                seqs << e.value(LogEntry::Text).trimmed().mid(4).toLongLong();
        return seqs;
    }
    // Every line once and in the device's order: consecutive numbers. Empty, else where the first step is.
    static std::string firstGap(const QList<qint64> &seqs)
    {
        for (qsizetype i = 1; i < seqs.size(); ++i)
            if (seqs[i] != seqs[i - 1] + 1)
                return "at " + std::to_string(i) + ": " + std::to_string(seqs[i]) + " after " +
                       std::to_string(seqs[i - 1]);
        return {};
    }

    ManualTimer *timer = nullptr; // owned by the delegate
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateDeviceTest, ReturnsToTheSameDeviceAfterTheCableAndAfterTheServerWithoutGapsOrRepeats)
{
    const QString serial =
        startDevice({"--sequence", "--rate", "40", "--buffer", "5000", "--drop-after", "3", "--return-after", "2"});
    ASSERT_FALSE(serial.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    // Named by the model once its lookup answers: "model - id" when the name was known as the stream
    // started, "id - model" when it arrived afterwards.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().contains("Pixel Sim"); }, 10000)) << title().toStdString();
    const QString deviceTitle = title();
    EXPECT_TRUE(deviceTitle == "Pixel Sim - " + serial || deviceTitle == serial + " - Pixel Sim")
        << deviceTitle.toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return shownSeqs().size() > 20; }, 10000));

    // The simulator drops off the server.
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [AWAY - RETRYING]"); }, 15000))
        << title().toStdString();
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
    const qsizetype beforeDrop = shownSeqs().size();

    // It comes back (once): streaming again, the log kept.
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return shownSeqs().size() > beforeDrop + 40; }, 15000));

    // The server goes away. Starting it ourselves fails here (the fixture's start does nothing), so
    // the window keeps retrying instead of giving up with an alert.
    LogCapture log;
    ASSERT_EQ(env().runAdb({"kill-server"}).exitCode, 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return title().endsWith(" [AWAY - RETRYING]"); }, 15000))
        << title().toStdString();
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
    const qsizetype beforeServer = shownSeqs().size();
    ASSERT_TRUE(tickUntil([&] { return streamingFrom(serial); }, 30000)) << title().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return shownSeqs().size() > beforeServer + 40; }, 15000));
    EXPECT_EQ(firstGap(shownSeqs()), "");
}

TEST_F(AppDelegateDeviceTest, EveryReplayedLineSurvivesTheStartOfANewDevice)
{
    // Only the replayed buffer, no live lines: what the window shows must be exactly the device's log.
    const QString serial = startDevice({"--sequence", "--buffer", "4000", "--lines", "0"});
    ASSERT_FALSE(serial.isEmpty());
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return streamingFrom(serial); }, 15000)) << title().toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return shownSeqs().size() >= 4000; }, 15000)) << shownSeqs().size() << " lines";
    EXPECT_EQ(shownSeqs().size(), 4000);
    EXPECT_EQ(firstGap(shownSeqs()), "");
}
