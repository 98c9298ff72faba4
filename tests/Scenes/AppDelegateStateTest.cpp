// SPDX-License-Identifier: MIT
// The connection states of the main window, played with a scripted ADB server for the device list
// and a log stream driven by the test (no adb, no device): titles, the Run/Stop item, the 5-second
// retry that only returns to the last device and the alerts. The picker is DeviceChoiceControllerTest's.
#include "Android/AdbProtocol.h"
#include "Helpers/Settings.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/PreferencesWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "Scenes/RemoteScreenMonitorSheet.h"
#include "Session/DeviceScreenDatasource.h"
#include "Scenes/TextViewerWindowController.h"
#include "support/Dialogs.h"
#include "support/FakeAdbServer.h"
#include "support/LogCapture.h"
#include "support/ManualTime.h"

#include <QAction>
#include <QFileInfo>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <utility>

namespace {

const QByteArray deviceA = "emu-A\tdevice product:sdk_a model:Pixel_A\n";
const QByteArray deviceB = "emu-B\tdevice product:sdk_b model:Pixel_B\n";

class AppDelegateStateTest : public FakeAdbServerTest
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        Settings::remove(QString::fromLatin1(LogTableController::ColumnLayoutName)); // the default columns
        server.useForClient();
        QuillfernAppDelegate::Options options;
        auto ownedTimer = std::make_unique<ManualTimer>();
        timer = ownedTimer.get();
        options.reconnectTimer = std::move(ownedTimer);
        options.startAdb = [this](std::function<void(bool)> done) { pendingAdbStart = std::move(done); };
        options.openUrl = [this](const QUrl &url) { openedUrls << url; };
        options.startDetached = [this](const QString &program, const QStringList &arguments) {
            started << (QStringList{program} + arguments).join(' ');
            return true;
        };
        options.logReaderHooks.startLogReader = [this](const QString &device) {
            streamDevice = device;
            ++streamsStarted;
        };
        options.logReaderHooks.stopLogReader = [this] { endStream(); };
        options.logReaderHooks.startPidLookup = [](bool, const QString &) {}; // no process list here
        recordedEvents.clear();
        options.recordEvent = [this](const QString &name) { recordedEvents << name; };
        app = std::make_unique<QuillfernAppDelegate>(std::move(options));
    }
    void TearDown() override
    {
        app.reset();
        FakeAdbServerTest::TearDown();
    }

    void addDevices(const QByteArray &list)
    {
        server.addScript({FakeAdbServer::expectRequest("host:devices"),
                          FakeAdbServer::reply("OKAY" + AdbProtocol::lengthPrefixed(list)), FakeAdbServer::close()});
    }
    void launch()
    {
        app->applicationDidFinishLaunching();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));
    }
    // Launches with emu-A alone on the list, and waits until it streams.
    void launchStreaming()
    {
        addDevices(deviceA);
        launch();
        ASSERT_TRUE(waitStreaming(1, "Pixel_A - emu-A"));
    }
    // The stream ends as a lost cable ends it: from the reader's side.
    void endStream() { app->logDatasource()->logReaderStopped(); }
    bool waitStreaming(int count, const QString &expectedTitle)
    {
        return QTest::qWaitFor(
            [&] {
                return streamsStarted.load() >= count && app->logDatasource()->isLogging() && title() == expectedTitle;
            },
            5000);
    }
    QString title() const { return app->window()->windowTitle(); }
    // "title|Run or Stop", and "|retrying" while the reconnect timer runs.
    QString state() const
    {
        return title() + '|' + app->window()->actions().connect->text() + (timer->active ? "|retrying" : "");
    }
    bool waitState(const QString &expected)
    {
        return QTest::qWaitFor([&] { return state() == expected; }, 3000);
    }
    QString lastRowText() const
    {
        const auto rows = app->tableController()->model()->rows();
        return rows.isEmpty() ? QString() : rows.back().value(LogEntry::Text);
    }
    // One reconnect tick whose device list is answered: waits until the answer has been handled.
    void tickWithDevices(const QByteArray &list)
    {
        addDevices(list);
        const auto answers = [&] { return log.count("Connected Devices:") + log.count("errorType:"); };
        const int handled = answers();
        app->onReconnectTimerTick();
        EXPECT_TRUE(QTest::qWaitFor([&] { return answers() > handled; }, 3000));
    }

    LogCapture log;
    ManualTimer *timer = nullptr; // owned by the delegate
    std::function<void(bool)> pendingAdbStart;
    QList<QUrl> openedUrls;
    QStringList started; // "program arguments..."
    QStringList recordedEvents;
    QString streamDevice;
    std::atomic<int> streamsStarted{0};
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateStateTest, StreamPauseQuietRetriesReturnStopAndRunAnother)
{
    launchStreaming();
    // The first stream of a run starts from an empty log with the start line.
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->tableController()->model()->rowCount() == 1; }, 3000));
    EXPECT_TRUE(lastRowText().contains("Started logging emu-A"));
    const auto rowsWith = [&](const QString &text) {
        const auto &rows = app->tableController()->model()->rows();
        return std::count_if(rows.begin(), rows.end(),
                             [&](const LogEntry &e) { return e.value(LogEntry::Text).startsWith(text); });
    };

    // Cable out: paused, "Cancel", retrying every 5 s.
    const QString away = "Pixel_A - emu-A [AWAY - RETRYING]|Cancel|retrying";
    endStream();
    ASSERT_TRUE(waitState(away)) << state().toStdString(); // the 5 s are ReconnectPolicyTest's

    // Listed, but each stream ends at once (offline): only the first retry writes its "Started
    // logging" and "Disconnected" rows; each later one leaves a diagnostic line.
    for (int retry = 1; retry <= 4; ++retry) {
        SCOPED_TRACE(retry);
        tickWithDevices(deviceA);
        ASSERT_TRUE(QTest::qWaitFor([&] { return log.count("connecting to: emu-A") == 1 + retry; }, 3000));
        endStream();
        ASSERT_TRUE(waitState(away)) << state().toStdString();
    }
    EXPECT_EQ(log.count("quiet retry"), 3);
    EXPECT_EQ(rowsWith("Started logging"), 2); // the first stream and the first retry
    EXPECT_EQ(rowsWith("Disconnected"), 2);

    // A tick while the device is gone (an empty list), then another device alone: neither alerts nor
    // is taken.
    for (const QByteArray &list : {QByteArray(), deviceB}) {
        tickWithDevices(list);
        EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
        EXPECT_EQ(streamDevice, "emu-A");
        EXPECT_EQ(state(), away);
    }
    EXPECT_EQ(log.count("device change - don't automatically reconnect to new device!"), 1);

    // The same device returns among others: away until its stream brings a line, then streaming again,
    // saying so, the log kept.
    tickWithDevices(deviceB + deviceA);
    ASSERT_TRUE(QTest::qWaitFor([&] { return log.count("connecting to: emu-A") == 6; }, 3000));
    EXPECT_EQ(state(), away);
    app->logDatasource()->logLineReceived(QStringLiteral("01-23 14:05:06.789  1234  1234 I Tag: back\n"));
    ASSERT_TRUE(waitState("Pixel_A - emu-A|Stop")) << state().toStdString();
    EXPECT_EQ(streamDevice, "emu-A");
    EXPECT_EQ(rowsWith("Started logging"), 3);
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr); // no picker either

    // Stop while streaming: offline.
    app->window()->actions().connect->trigger();
    ASSERT_TRUE(waitState("Pixel_A - emu-A [OFFLINE]|Run")) << state().toStdString();

    // Run takes whichever device is there now.
    addDevices(deviceB);
    const int streams = streamsStarted.load();
    app->onConnectButtonPressed();
    ASSERT_TRUE(waitStreaming(streams + 1, "Pixel_B - emu-B"));
    EXPECT_EQ(streamDevice, "emu-B");

    // Stop while paused goes offline at once; a late tick then does nothing, it asks not even for a device
    // list: the next Run's list is the only one asked for.
    endStream();
    ASSERT_TRUE(waitState("Pixel_B - emu-B [AWAY - RETRYING]|Cancel|retrying")) << state().toStdString();
    app->onConnectButtonPressed();
    EXPECT_EQ(state(), "Pixel_B - emu-B [OFFLINE]|Run");
    const int connections = server.connectionCount();
    app->onReconnectTimerTick();
    addDevices(deviceA);
    app->onConnectButtonPressed();
    ASSERT_TRUE(waitStreaming(streams + 2, "Pixel_A - emu-A"));
    EXPECT_EQ(server.connectionCount(), connections + 1);
}

TEST_F(AppDelegateStateTest, AlertsTakeTheWindowOfflineAndAddTheirLogLine)
{
    const struct
    {
        std::optional<QByteArray> devices; // none: the ADB server is not reachable
        QString alert;
        QString logLine;
        QStringList usageEvents;
    } cases[] = {
        {QByteArray(),
         "No Android device found. \n\nMake sure device is connected and developer mode is enabled.",
         "No Android device found. Make sure device is connected and developer mode is enabled.",
         {}},
        // The model lookup of the nameless device finds no server script: it fails quietly.
        {"unauthorized\tdevice\n",
         "Device Not Authorized\n\nAllow USB debugging from device unauthorized",
         "Device Not Authorized. Allow USB debugging from device unauthorized",
         {"error-not-authorized"}},
        {std::nullopt,
         "ADB not running\n\nMake sure ADB is running.\n\nFrom Terminal: adb start-server",
         "ADB not running. Make sure ADB is running. From Terminal: adb start-server",
         {"error-adb-not-running"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.logLine.toStdString());
        TearDown();
        SetUp();
        if (c.devices)
            addDevices(*c.devices);
        else
            Settings::setValue(SettingsKey::adbPort, QStringLiteral("1")); // nothing listens there
        launch();
        if (!c.devices) {
            ASSERT_TRUE(QTest::qWaitFor([&] { return bool(pendingAdbStart); }, 5000));
            EXPECT_EQ(title(), "Starting ADB server..");
            std::exchange(pendingAdbStart, {})(false);
        }
        EXPECT_EQ(dialogs::answer(app->window(), "OK"), "Alert\n" + c.alert);
        EXPECT_EQ(recordedEvents, c.usageEvents);
        EXPECT_EQ(state(), "No devices connected|Run");
        EXPECT_TRUE(QTest::qWaitFor([&] { return lastRowText().contains(c.logLine); }, 3000));
        EXPECT_EQ(app->tableController()->model()->rows().back().value(LogEntry::Type), "QF");
        EXPECT_EQ(streamsStarted.load(), 0);
        Settings::remove(SettingsKey::adbPort);
    }
}

TEST_F(AppDelegateStateTest, AdbStartedRetriesTheDeviceList)
{
    const quint16 port = server.port();
    Settings::setValue(SettingsKey::adbPort, QStringLiteral("1"));
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return bool(pendingAdbStart); }, 5000));
    // The server is up now.
    Settings::setValue(SettingsKey::adbPort, QString::number(port));
    addDevices(deviceA);
    std::exchange(pendingAdbStart, {})(true);
    EXPECT_TRUE(waitStreaming(1, "Pixel_A - emu-A"));
    EXPECT_EQ(dialogs::visible<QMessageBox>(app->window()), nullptr);
}

// The commands of a streaming window, one step after another on one window.
TEST_F(AppDelegateStateTest, CommandsOfAStreamingWindow)
{
    launchStreaming();
    const MainWindow::Actions &a = app->window()->actions();
    // The columns' default widths and tooltips are LogTableControllerTest's.

    SCOPED_TRACE("Ctrl+0 undoes Bigger; Escape empties the search box");
    const int rowHeight = app->tableController()->rowHeightPixels();
    a.biggerFont->trigger();
    ASSERT_GT(app->tableController()->rowHeightPixels(), rowHeight);
    EXPECT_EQ(a.actualSize->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_0));
    a.actualSize->trigger();
    EXPECT_EQ(app->tableController()->rowHeightPixels(), rowHeight);
    QLineEdit *search = app->window()->searchField();
    search->setText(QStringLiteral("Tag"));
    search->setFocus();
    ASSERT_TRUE(QTest::qWaitFor([&] { return search->hasFocus(); }, 3000));
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(search->text().isEmpty());

    SCOPED_TRACE("the status line follows the rows and the filter");
    QLabel *status = app->window()->statusLabel();
    for (int i = 0; i < 4; ++i)
        app->logDatasource()->logLineReceived(QStringLiteral("01-23 14:05:0%1.789  1234  5678 W Tag: line %1").arg(i));
    search->setText("line 2");
    EXPECT_TRUE(QTest::qWaitFor([&] { return status->text().startsWith("Viewing 1 of 5+"); }, 3000))
        << status->text().toStdString();
    search->clear();
    app->clearLog();
    EXPECT_TRUE(QTest::qWaitFor([&] { return status->text().startsWith("No Data       v("); }, 3000))
        << status->text().toStdString();

    SCOPED_TRACE("Preferences close with Ctrl+W (the offscreen platform activates no second window: the "
                 "command is found by its key)");
    app->preferences();
    QWidget *prefs = QuillfernPreferences::sharedPrefsWindowController();
    ASSERT_TRUE(prefs->isVisible());
    const QList<QAction *> actions = prefs->actions();
    const auto close = std::find_if(actions.begin(), actions.end(), [](QAction *action) {
        return action->shortcut() == QKeySequence(Qt::CTRL | Qt::Key_W);
    });
    ASSERT_NE(close, actions.end());
    (*close)->trigger();
    EXPECT_FALSE(prefs->isVisible());

    SCOPED_TRACE("new window, help, tag help and shared filters reach the desktop");
    app->newWindow();
    app->onHelpClick();
    app->onLogTagHelp();
    app->filterToolbarClicked(2);
    ASSERT_EQ(openedUrls.size(), 3);
    EXPECT_EQ(openedUrls[0].scheme(), "mailto");
    EXPECT_TRUE(openedUrls[0].query(QUrl::FullyDecoded).contains("subject=Quillfern Feedback"));
    EXPECT_EQ(openedUrls.mid(1),
              QList<QUrl>({QuillfernAppDelegate::LogTagHelpUrl, QuillfernAppDelegate::SharedFiltersUrl}));

    // The typing terminal: the desktop's terminal runs the bundled script for the streaming device.
    qputenv("TERMINAL", "my-terminal");
    a.typingTerminal->trigger();
    qunsetenv("TERMINAL");
    const QString script = QuillfernAppDelegate::typingScriptPath();
    ASSERT_TRUE(script.endsWith("/atext")) << script.toStdString();
    EXPECT_TRUE(QFileInfo(script).isExecutable());
    EXPECT_EQ(started, QStringList({QCoreApplication::applicationFilePath(), "my-terminal -e " + script + " emu-A"}));
    EXPECT_EQ(recordedEvents.count("openTypingTerminal"), 1);

    SCOPED_TRACE("one message viewer, reused; Copy goes to it only while it is the active window");
    app->showTextViewer(QStringLiteral("first"));
    TextViewerWindowController *viewer = app->textViewer();
    emit app->tableController()->viewTextRequested(QStringLiteral("from the table"));
    EXPECT_EQ(app->textViewer(), viewer);
    EXPECT_EQ(viewer->text(), "from the table") << "View Message, double click and the process tree reach it";
    app->showTextViewer(QStringLiteral("message"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return viewer->isKeyWindow(); }, 3000));
    a.copy->trigger();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "message");
    QGuiApplication::clipboard()->setText(QStringLiteral("kept"));
    viewer->close();
    app->window()->activateWindow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !viewer->isKeyWindow(); }, 3000));
    app->copy();
    EXPECT_NE(QGuiApplication::clipboard()->text(), "message");

    SCOPED_TRACE("the remote screen opens and closes for the current device and is kept");
    EXPECT_EQ(a.remoteScreenMenu->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    a.remoteScreenMenu->trigger();
    RemoteScreenMonitorSheet *sheet = app->remoteScreenMonitorSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->deviceId(), QStringLiteral("emu-A"));
    // The scripted server has nothing for a screenshot: the capture fails and the window offers Start.
    EXPECT_TRUE(QTest::qWaitFor([&] { return sheet->autoRefreshItem()->text() == QStringLiteral("Start"); }, 5000));
    a.remoteScreen->trigger();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_FALSE(sheet->screenSource()->isRunning());
    // Reopened: the same window, monitoring again whatever its switch shows.
    a.remoteScreen->trigger();
    EXPECT_EQ(app->remoteScreenMonitorSheet(), sheet);
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_TRUE(sheet->screenSource()->isRunning());
}
