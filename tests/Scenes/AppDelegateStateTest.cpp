// SPDX-License-Identifier: MIT
// The connection states of the main window, played with a scripted ADB server for the device list
// and a log stream driven by the test (no adb, no device): titles, the Run/Stop item, the 5-second
// retry that only returns to the last device, the alerts and the device picker.
#include "Session/ConnectionStatus.h"
#include "Helpers/Settings.h"
#include "Session/ReconnectPolicy.h"
#include "Scenes/DevicePickerSheet.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "Scenes/SelectableTableView.h"
#include "support/FakeAdbServer.h"
#include "support/ManualTime.h"

#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

#include <atomic>

namespace {

QByteArray devicesReply(const QByteArray &list)
{
    return "OKAY" + QByteArray::number(list.size(), 16).rightJustified(4, '0') + list;
}

QMessageBox *visibleMessageBox(QWidget *window)
{
    for (QMessageBox *box : window->findChildren<QMessageBox *>())
        if (box->isVisible())
            return box;
    return nullptr;
}

class AppDelegateStateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        server.useForClient();
        QuillfernAppDelegate::Options options;
        options.reconnectTimer = takeTimer();
        options.startAdb = [this](std::function<void(bool)> done) { pendingAdbStart = std::move(done); };
        options.openUrl = [this](const QUrl &url) { openedUrls << url; };
        options.startDetached = [this](const QString &program, const QStringList &) {
            startedPrograms << program;
            return true;
        };
        options.logReaderHooks.startLogReader = [this](const QString &device) {
            streamDevice = device;
            ++streamsStarted;
        };
        options.logReaderHooks.stopLogReader = [this] { endStream(); };
        options.logReaderHooks.startPidLookup = [](bool, const QString &) {}; // no process list here
        app = std::make_unique<QuillfernAppDelegate>(std::move(options));
    }
    void TearDown() override
    {
        app.reset();
        EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join("; ").toStdString();
    }

    void addDevices(const QByteArray &list)
    {
        server.addScript({FakeAdbServer::expectRequest("host:devices"), FakeAdbServer::reply(devicesReply(list)),
                          FakeAdbServer::close()});
    }
    void launch()
    {
        app->applicationDidFinishLaunching();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));
    }
    // The stream ends as a lost cable ends it: from the reader's side.
    void endStream() { app->logDatasource()->logReaderStopped(); }
    bool waitStreaming(int count)
    {
        return QTest::qWaitFor([&] { return streamsStarted.load() >= count && app->logDatasource()->isLogging() &&
                                            app->window()->windowTitle() == expectedTitle; }, 5000);
    }
    QString title() const { return app->window()->windowTitle(); }
    QString button() const { return app->window()->actions().connect->text(); }

    FakeAdbServer server;
    ManualTimer *timer = nullptr; // owned by the delegate
    std::unique_ptr<RepeatingTimer> takeTimer()
    {
        auto owned = std::make_unique<ManualTimer>();
        timer = owned.get();
        return owned;
    }
    std::function<void(bool)> pendingAdbStart;
    QList<QUrl> openedUrls;
    QStringList startedPrograms;
    QString streamDevice;
    std::atomic<int> streamsStarted{0};
    QString expectedTitle;
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateStateTest, StreamPauseReturnAndStop)
{
    addDevices("emu-A\tdevice product:sdk_a model:Pixel_A\n");
    launch();
    expectedTitle = "Pixel_A - emu-A";
    ASSERT_TRUE(waitStreaming(1));
    EXPECT_EQ(streamDevice, "emu-A");
    EXPECT_EQ(button(), "Stop");
    EXPECT_FALSE(timer->active);
    EXPECT_TRUE(app->autoReconnect());
    // The first stream of a run starts from an empty log with the start line.
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->tableController()->model()->rowCount() == 1; }, 3000));
    EXPECT_TRUE(app->tableController()->model()->rows().front().value(LogEntry::Text).contains("Started logging emu-A"));

    // Cable out: paused, still "Stop", retrying.
    endStream();
    ASSERT_TRUE(QTest::qWaitFor([&] { return title() == "Pixel_A - emu-A [PAUSED]"; }, 3000));
    EXPECT_EQ(button(), "Stop");
    EXPECT_TRUE(timer->active);
    EXPECT_EQ(timer->lastInterval, std::chrono::milliseconds(5000));

    // A tick while the device is still gone: the device list is empty, no alert.
    server.addScript({FakeAdbServer::expectRequest("host:devices"), FakeAdbServer::reply("OKAY0000"), FakeAdbServer::close()});
    app->onReconnectTimerTick();
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.allScriptsDone(); }, 3000));
    QTest::qWait(50);
    EXPECT_EQ(visibleMessageBox(app->window()), nullptr);
    EXPECT_EQ(title(), "Pixel_A - emu-A [PAUSED]");

    // Another device appears alone: not taken.
    addDevices("emu-B\tdevice product:sdk_b model:Pixel_B\n");
    app->onReconnectTimerTick();
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.allScriptsDone(); }, 3000));
    QTest::qWait(50);
    EXPECT_EQ(streamsStarted.load(), 1);
    EXPECT_EQ(title(), "Pixel_A - emu-A [PAUSED]");

    // The same device returns among others: streaming again, the log kept.
    addDevices("emu-B\tdevice product:sdk_b model:Pixel_B\nemu-A\tdevice product:sdk_a model:Pixel_A\n");
    app->onReconnectTimerTick();
    ASSERT_TRUE(waitStreaming(2));
    EXPECT_EQ(streamDevice, "emu-A");
    EXPECT_FALSE(timer->active);
    EXPECT_EQ(visibleMessageBox(app->window()), nullptr); // no picker either
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->tableController()->model()->rowCount() >= 3; }, 3000));

    // Stop while streaming: offline.
    app->window()->actions().connect->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return title() == "Pixel_A - emu-A [OFFLINE]"; }, 3000));
    EXPECT_EQ(button(), "Run");
    EXPECT_FALSE(timer->active);
    EXPECT_FALSE(app->autoReconnect());
}

TEST_F(AppDelegateStateTest, StopWhilePausedGoesOfflineAtOnce)
{
    addDevices("emu-A\tdevice product:sdk_a model:Pixel_A\n");
    launch();
    expectedTitle = "Pixel_A - emu-A";
    ASSERT_TRUE(waitStreaming(1));
    endStream();
    ASSERT_TRUE(QTest::qWaitFor([&] { return timer->active; }, 3000));
    app->onConnectButtonPressed();
    EXPECT_EQ(title(), "Pixel_A - emu-A [OFFLINE]");
    EXPECT_EQ(button(), "Run");
    EXPECT_FALSE(timer->active);
    // A late tick does nothing.
    app->onReconnectTimerTick();
    QTest::qWait(50);
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST_F(AppDelegateStateTest, NoDeviceGivesTheAlertAndItsLogLine)
{
    server.addScript({FakeAdbServer::expectRequest("host:devices"), FakeAdbServer::reply("OKAY0000"), FakeAdbServer::close()});
    launch();
    QMessageBox *box = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (box = visibleMessageBox(app->window())) != nullptr; }, 5000));
    EXPECT_EQ(box->text(), "Alert");
    ASSERT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(box->buttons().front()->text(), "OK");
    EXPECT_EQ(box->informativeText(),
              "No Android device found. \n\nMake sure device is connected and developer mode is enabled.");
    EXPECT_EQ(title(), "No devices connected");
    EXPECT_EQ(button(), "Run");
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->tableController()->model()->rowCount() == 1; }, 3000));
    const LogEntry line = app->tableController()->model()->rows().front();
    EXPECT_EQ(line.value(LogEntry::Type), "QF");
    EXPECT_TRUE(line.value(LogEntry::Text).contains(
        "No Android device found. Make sure device is connected and developer mode is enabled."));
    box->buttons().front()->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return visibleMessageBox(app->window()) == nullptr; }, 3000));
}

TEST_F(AppDelegateStateTest, UnauthorizedDeviceAlert)
{
    addDevices("unauthorized\tdevice\n");
    // The model lookup of the nameless device finds no server script: it fails quietly.
    launch();
    QMessageBox *box = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (box = visibleMessageBox(app->window())) != nullptr; }, 5000));
    EXPECT_EQ(box->informativeText(), "Device Not Authorized\n\nAllow USB debugging from device unauthorized");
    ASSERT_TRUE(QTest::qWaitFor([&] {
        const auto rows = app->tableController()->model()->rows();
        return !rows.isEmpty() && rows.back().value(LogEntry::Text).contains(
                                      "Device Not Authorized. Allow USB debugging from device unauthorized");
    }, 3000));
    EXPECT_EQ(streamsStarted.load(), 0);
}

TEST_F(AppDelegateStateTest, AdbNotRunningStartsTheServerThenAlerts)
{
    Settings::setValue(SettingsKey::adbPort, QStringLiteral("1")); // nothing listens there
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return bool(pendingAdbStart); }, 5000));
    EXPECT_EQ(title(), "Starting ADB server..");
    auto done = std::move(pendingAdbStart);
    done(false);
    QMessageBox *box = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (box = visibleMessageBox(app->window())) != nullptr; }, 3000));
    EXPECT_EQ(box->informativeText(), "ADB not running\n\nMake sure ADB is running.\n\nFrom Terminal: adb start-server");
    EXPECT_EQ(title(), "No devices connected");
    ASSERT_TRUE(QTest::qWaitFor([&] {
        const auto rows = app->tableController()->model()->rows();
        return !rows.isEmpty() && rows.back().value(LogEntry::Text).contains(
                                      "ADB not running. Make sure ADB is running. From Terminal: adb start-server");
    }, 3000));
}

TEST_F(AppDelegateStateTest, AdbStartedRetriesTheDeviceList)
{
    const quint16 port = server.port();
    Settings::setValue(SettingsKey::adbPort, QStringLiteral("1"));
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return bool(pendingAdbStart); }, 5000));
    // The server is up now.
    Settings::setValue(SettingsKey::adbPort, QString::number(port));
    addDevices("emu-A\tdevice model:Pixel_A\n");
    auto done = std::move(pendingAdbStart);
    done(true);
    expectedTitle = "Pixel_A - emu-A";
    EXPECT_TRUE(waitStreaming(1));
    EXPECT_EQ(visibleMessageBox(app->window()), nullptr);
}

TEST_F(AppDelegateStateTest, PickerWithTwoDevicesStartsTheChosenOne)
{
    addDevices("emu-A\tdevice product:sdk_a model:Pixel_A\nemu-B\tdevice product:sdk_b\n");
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->devicePickerSheet() && app->devicePickerSheet()->isVisible(); }, 5000));
    DevicePickerSheet *picker = app->devicePickerSheet();
    // Titles in key order, each as getDeviceTitle makes them (name first, else product).
    EXPECT_EQ(picker->deviceTitles(), (QStringList{"Pixel_A - emu-A", "sdk_b - emu-B"}));
    EXPECT_EQ(title(), "No devices connected");
    picker->setSelectedIndex(1);
    picker->connectButton()->click();
    expectedTitle = "sdk_b - emu-B";
    ASSERT_TRUE(waitStreaming(1));
    EXPECT_EQ(streamDevice, "emu-B");
    EXPECT_FALSE(picker->isVisible());

    // A model name arriving for the logged device: id first, then the model.
    app->onDeviceModel("emu-B", "Tablet_B");
    EXPECT_EQ(title(), "emu-B - Tablet_B");
    EXPECT_EQ(app->deviceList().value("emu-B").name.value_or(QString()), "Tablet_B");
}

TEST_F(AppDelegateStateTest, PickerCancelledStaysOffline)
{
    addDevices("emu-A\tdevice model:A\nemu-B\tdevice model:B\n");
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->devicePickerSheet() && app->devicePickerSheet()->isVisible(); }, 5000));
    app->devicePickerSheet()->cancelButton()->click();
    QTest::qWait(50);
    EXPECT_EQ(streamsStarted.load(), 0);
    EXPECT_EQ(title(), "No devices connected");
    EXPECT_EQ(button(), "Run");
}

TEST_F(AppDelegateStateTest, StatusLineFollowsRowsAndFilter)
{
    addDevices("emu-A\tdevice model:Pixel_A\n");
    launch();
    expectedTitle = "Pixel_A - emu-A";
    ASSERT_TRUE(waitStreaming(1));
    QLabel *status = app->window()->statusLabel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text() == "Viewing: 1"; }, 3000));
    for (int i = 0; i < 4; ++i)
        app->logDatasource()->logLineReceived(
            QStringLiteral("01-23 14:05:0%1.789  1234  5678 W Tag: line %1").arg(i));
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text() == "Viewing: 5"; }, 3000));
    app->window()->searchField()->setText("line 2");
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text() == "Viewing 1 of 5+"; }, 3000));
    app->window()->searchField()->setText("nothing like it");
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text() == "Viewing 0 of 5+"; }, 3000));
    app->window()->searchField()->clear();
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text() == "Viewing: 5"; }, 3000));
    app->clearLog();
    ASSERT_TRUE(QTest::qWaitFor([&] { return status->text().startsWith("No Data       v("); }, 3000));
}

TEST_F(AppDelegateStateTest, PlatformCommands)
{
    addDevices("emu-A\tdevice model:Pixel_A\n");
    launch();
    app->newWindow();
    ASSERT_EQ(startedPrograms.size(), 1);
    EXPECT_EQ(startedPrograms.front(), QCoreApplication::applicationFilePath());
    app->onHelpClick();
    app->onLogTagHelp();
    app->filterToolbarClicked(2);
    ASSERT_EQ(openedUrls.size(), 3);
    EXPECT_EQ(openedUrls[0].scheme(), "mailto");
    EXPECT_TRUE(openedUrls[0].query(QUrl::FullyDecoded).contains("subject=Quillfern Feedback"));
    EXPECT_EQ(openedUrls[1], QuillfernAppDelegate::LogTagHelpUrl);
    EXPECT_EQ(openedUrls[2], QuillfernAppDelegate::SharedFiltersUrl);
}
