// SPDX-License-Identifier: MIT
#pragma once

#include "Session/DeviceListDatasource.h"
#include "Session/LogDatasource.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>

class AboutDialog;
class DeviceChoiceController;
class DevicePickerSheet;
class LogDocumentController;
class LogTableController;
class MainWindow;
class ReconnectPolicy;
class RemoteScreenMonitorSheet;
class RepeatingTimer;
class SavedFiltersController;
class TextViewerWindowController;
class ToolWindows;

// The application controller: owns the main window, the log model and the device list, is the
// delegate of both, and runs the connection state machine (Run/Stop, the 5-second reconnection to
// the last device, device choice, the three alerts). Its named operations stay thin and hand the
// work to the owned collaborators: ReconnectPolicy (when and where to reconnect), ConnectionStatus
// (every title and status text), DeviceChoiceController (the device list and the picker),
// LogTableController (the table and its menus and keys), SavedFiltersController (filters),
// LogDocumentController (opening and saving logs) and ToolWindows (the message viewer, the remote
// screen and the typing terminal).
// GUI thread only; reports from other threads are re-posted here before they touch any state.
class QuillfernAppDelegate : public QObject, public LogDatasourceDelegate, public DeviceListDatasourceDelegate
{
    Q_OBJECT

public:
    struct Options
    {
        // The reconnect timer; null means a real 5-second QTimer.
        std::unique_ptr<RepeatingTimer> reconnectTimer;
        // Starts the ADB server; the callback runs on the GUI thread with the outcome.
        // Null means Utils::startAdb.
        std::function<void(std::function<void(bool ok)>)> startAdb;
        // Opens a page or mail in the desktop's handler; null means QDesktopServices::openUrl.
        std::function<void(const QUrl &)> openUrl;
        // Starts a program detached; null means QProcess::startDetached.
        std::function<bool(const QString &program, const QStringList &arguments)> startDetached;
        // Replaces the log stream reader (tests that play a device without adb).
        LogDatasource::ReaderHooks logReaderHooks;
        // Records a usage event (AnalyticsHelper::eventRecorder); null records nothing.
        std::function<void(const QString &name)> recordEvent;
    };

    explicit QuillfernAppDelegate(Options options);
    QuillfernAppDelegate();
    ~QuillfernAppDelegate() override;

    // Addresses the program opens.
    static const QUrl SharedFiltersUrl;
    static const QUrl LogTagHelpUrl;
    static const QString FeedbackAddress;

    // --- Application life cycle ---
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    bool openFile(const QString &path); // application:openFile:; always true
    void newWindow();
    void orderFrontStandardAboutPanel();
    void applicationWillResignActive();

    // --- Main-window commands ---
    void clearLog();
    void filterToolbarClicked(int segment);
    void onLogTagHelp();
    void onHelpClick();
    void preferences();
    // Shows or hides the remote screen of the current device; the window is made on first use and kept.
    void remoteScreenMonitor();
    // Opens the bundled "atext" script in the desktop's terminal ($TERMINAL, else x-terminal-emulator):
    // each line typed there goes to the device as text input.
    void openTypingTerminal();
    // Where "atext" is: beside the executable (a build tree), else in the install's share folder.
    static QString typingScriptPath();
    // The Copy command: the message viewer's text when it is the active window, else the table's rows.
    void copy();

    // --- Message viewer ---
    // Created on first use and kept.
    TextViewerWindowController *textViewer();
    // Shows the viewer with `text`.
    void showTextViewer(const QString &text);

    // --- Connection ---
    void onConnectButtonPressed();
    void startLogging();
    void stopLogging();
    void setOffline();
    void resetConnectButton();
    bool deviceAway() const; // retrying, and no stream with lines
    void setOfflineTitle();
    void updateStatus();
    void startReconnectTimer();
    void stopReconnectTimer();
    void onReconnectTimerTick();
    void showDevicePicker();
    static QString getDeviceTitle(const DeviceEntry &device);
    void adbDeviceNotAuthorized(const QString &deviceId);
    void showAdbNotRunningError();
    // Records a usage event ("error-not-authorized", "openTypingTerminal", ...); does nothing without a recorder.
    void recordEvent(const QString &name) const;
    void onLogUpdated() override;

    // --- LogDatasourceDelegate (GUI thread) ---
    void onLoggerStarted() override;
    void onLoggerStopped() override;
    void onMultipleDevicesConnected() override;
    void onDeviceNotFound() override;
    void onNoDeviceSelected() override;
    void adbNotRunningError(const AdbError &error) override;
    void adbDeviceNotFound(const AdbError &error) override;
    void willPruneLogEvents() override;
    void didPruneLogEvents(quint64 count) override;

    // --- DeviceListDatasourceDelegate ---
    void onDevicesConnected(const QList<DeviceEntry> &devices) override;
    void onDeviceModel(const QString &deviceId, const QString &model) override;
    void onDeviceListFailed(int errorType) override; // any thread

    // --- Log documents ---
    void saveDocument();
    void saveDocumentAsText();
    void openLogcatFile();
    void setFileContents(const QList<LogEntry> &entries, const QString &path);

    // --- Parts, for the window's owner and for tests ---
    MainWindow *window() const { return m_window.get(); }
    LogDatasource *logDatasource() const { return m_logDatasource.get(); }
    DeviceListDatasource *deviceSource() const { return m_deviceSource.get(); }
    ReconnectPolicy *reconnectPolicy() const { return m_reconnect.get(); }
    LogTableController *tableController() const { return m_table.get(); }
    SavedFiltersController *filters() const { return m_filters.get(); }
    DeviceChoiceController *deviceChoice() const { return m_devices.get(); }
    LogDocumentController *documents() const { return m_documents.get(); }
    DevicePickerSheet *devicePickerSheet() const;
    RemoteScreenMonitorSheet *remoteScreenMonitorSheet() const;
    bool isDatasourceDevice() const { return m_isDatasourceDevice; }
    bool autoReconnect() const;

signals:
    // An alert was shown (message "Alert"); for tests and the diagnostic log alike.
    void alertShown(const QString &informativeText);

private:
    void connectWindow();
    void showAlert(const QString &logLine, const QString &alertText);
    void openUrl(const QUrl &url);
    void chooseDevice(const QString &deviceId);

    Options m_options;
    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<LogDatasource> m_logDatasource;
    std::unique_ptr<DeviceListDatasource> m_deviceSource;
    std::unique_ptr<ReconnectPolicy> m_reconnect;
    std::unique_ptr<LogTableController> m_table;
    std::unique_ptr<SavedFiltersController> m_filters;
    std::unique_ptr<DeviceChoiceController> m_devices;
    std::unique_ptr<LogDocumentController> m_documents;
    QPointer<AboutDialog> m_about;
    std::unique_ptr<ToolWindows> m_tools;

    bool m_isDatasourceDevice = false;

    bool m_adbStarting = false; // a start of the adb server is under way
    bool m_terminating = false;
    bool m_prefsConnected = false;
};
