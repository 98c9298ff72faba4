// SPDX-License-Identifier: MIT
#include "Scenes/ToolWindows.h"

#include "Helpers/Logger.h"
#include "Scenes/MainWindow.h"
#include "Scenes/RemoteScreenMonitorSheet.h"
#include "Scenes/TextViewerWindowController.h"
#include "Session/LogDatasource.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QScreen>

#include <algorithm>

ToolWindows::ToolWindows(MainWindow *window, LogDatasource *logDatasource, Platform platform)
    : m_window(window)
    , m_logDatasource(logDatasource)
    , m_platform(std::move(platform))
{
}

ToolWindows::~ToolWindows() = default;

TextViewerWindowController *ToolWindows::textViewer()
{
    if (!m_textViewer) {
        m_textViewer = std::make_unique<TextViewerWindowController>(m_platform.openUrl);
        // Closing the main window still quits with the viewer open.
        m_textViewer->setAttribute(Qt::WA_QuitOnClose, false);
    }
    return m_textViewer.get();
}

void ToolWindows::showTextViewer(const QString &text)
{
    textViewer()->showText(text);
}

bool ToolWindows::copyFromViewer()
{
    if (!m_textViewer || !m_textViewer->isKeyWindow())
        return false;
    m_textViewer->copy();
    return true;
}

void ToolWindows::remoteScreenMonitor()
{
    if (m_remoteScreen && m_remoteScreen->isVisible()) {
        QF_LOG(QStringLiteral("closing mirror window: %1").arg(m_remoteScreen->deviceId()));
        m_remoteScreen->close();
        return;
    }
    // Read once per opening: the preferences may have changed since the last one.
    const AdbConnectionSettings settings = m_platform.connectionSettings();
    if (!m_remoteScreen) {
        m_remoteScreen = std::make_unique<RemoteScreenMonitorSheet>(settings);
        // Beside the main window, overlapping it where the screen is too narrow.
        const QRect frame = m_window->frameGeometry();
        const QRect screen = m_window->screen()->availableGeometry();
        m_remoteScreen->move(std::max(screen.left(), std::min(frame.right() + 8, screen.right() - m_remoteScreen->width())),
                             frame.top());
    } else {
        m_remoteScreen->setConnectionSettings(settings);
    }
    const QString deviceId = m_logDatasource->deviceId();
    QF_LOG(QStringLiteral("opening mirror window: %1").arg(deviceId));
    m_remoteScreen->setDeviceId(deviceId);
    m_remoteScreen->showWindow();
}

QString ToolWindows::typingScriptPath()
{
    const QString dir = QCoreApplication::applicationDirPath();
    for (const QString &candidate : {dir + QStringLiteral("/atext"), dir + QStringLiteral("/../share/quillfern/atext")}) {
        if (QFileInfo(candidate).isFile())
            return QFileInfo(candidate).canonicalFilePath();
    }
    return {};
}

void ToolWindows::openTypingTerminal()
{
    if (m_platform.recordEvent)
        m_platform.recordEvent(QStringLiteral("openTypingTerminal"));
    const QString script = typingScriptPath();
    if (script.isEmpty()) {
        QF_LOG_ERROR(QStringLiteral("typing terminal: the atext script is not installed"));
        return;
    }
    const QString terminal = qEnvironmentVariableIsEmpty("TERMINAL") ? QStringLiteral("x-terminal-emulator")
                                                                      : qEnvironmentVariable("TERMINAL");
    QStringList arguments{QStringLiteral("-e"), script};
    if (const QString device = m_logDatasource->deviceId(); !device.isEmpty())
        arguments << device;
    const bool ok = m_platform.startDetached(terminal, arguments);
    QF_LOG(QStringLiteral("typing terminal: %1 %2 started:%3").arg(terminal, arguments.join(u' ')).arg(ok));
}
