// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbConnectionSettings.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>

class LogDatasource;
class MainWindow;
class RemoteScreenMonitorSheet;
class TextViewerWindowController;

// The windows and tools beside the main window: the message viewer, the remote screen and the typing
// terminal. Each window is made on first use and kept. GUI thread only.
class ToolWindows
{
public:
    struct Platform
    {
        std::function<void(const QUrl &)> openUrl;
        std::function<bool(const QString &program, const QStringList &arguments)> startDetached;
        std::function<void(const QString &name)> recordEvent;
        // Read when a window opens, so a change in the preferences applies to the next one.
        std::function<AdbConnectionSettings()> connectionSettings;
    };

    // `window` and `logDatasource` outlive this object (the device is the one the log streams from).
    ToolWindows(MainWindow *window, LogDatasource *logDatasource, Platform platform);
    ~ToolWindows();

    TextViewerWindowController *textViewer();
    void showTextViewer(const QString &text);
    // The viewer's Copy when it is the active window; false when the command belongs to the table.
    bool copyFromViewer();

    // Shows or hides the remote screen of the current device, beside the main window.
    void remoteScreenMonitor();
    RemoteScreenMonitorSheet *remoteScreenMonitorSheet() const { return m_remoteScreen.get(); }

    // Opens the bundled "atext" script in the desktop's terminal ($TERMINAL, else x-terminal-emulator):
    // each line typed there goes to the device as text input.
    void openTypingTerminal();
    // Where "atext" is: beside the executable (a build tree), else in the install's share folder.
    static QString typingScriptPath();

private:
    MainWindow *m_window;
    LogDatasource *m_logDatasource;
    Platform m_platform;
    std::unique_ptr<TextViewerWindowController> m_textViewer;
    std::unique_ptr<RemoteScreenMonitorSheet> m_remoteScreen;
};
