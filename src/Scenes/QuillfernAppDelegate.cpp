// SPDX-License-Identifier: MIT
#include "Scenes/QuillfernAppDelegate.h"

#include "BuildInfo.h"
#include "Helpers/Logger.h"
#include "Helpers/Settings.h"
#include "Helpers/Utils.h"
#include "Scenes/AboutDialog.h"
#include "Scenes/DeviceChoiceController.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogDocumentController.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/PreferencesWindow.h"
#include "Scenes/SavedFiltersController.h"
#include "Scenes/ToolWindows.h"
#include "Session/ConnectionStatus.h"
#include "Session/ReconnectPolicy.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QLineEdit>
#include <QProcess>
#include <QUrlQuery>

namespace {

// The one place below the window that reads the connection settings; readers and datasources get them.
AdbConnectionSettings connectionSettingsFromStore()
{
    return AdbConnectionSettings::fromStored(Settings::adbServer(), Settings::adbPort(), Settings::clearLogOnStart(),
                                             Settings::adbLogTags());
}

void passConnectionSettings(LogDatasource &log, DeviceListDatasource &devices)
{
    const AdbConnectionSettings settings = connectionSettingsFromStore();
    log.setConnectionSettings(settings);
    devices.setConnectionSettings(settings);
}

} // namespace

const QUrl QuillfernAppDelegate::SharedFiltersUrl(QStringLiteral("https://github.com/quillfern/quillfern-filters"));
const QUrl QuillfernAppDelegate::LogTagHelpUrl(
    QStringLiteral("https://developer.android.com/tools/logcat#filteringOutput"));
const QString QuillfernAppDelegate::FeedbackAddress = QStringLiteral("feedback@quillfern.org");

QuillfernAppDelegate::QuillfernAppDelegate()
    : QuillfernAppDelegate(Options{})
{
}

QuillfernAppDelegate::QuillfernAppDelegate(Options options)
    : m_options(std::move(options))
{
    if (!m_options.startAdb) {
        m_options.startAdb = [this](std::function<void(bool)> done) {
            // The completion may come from the tool's thread: hand it back to this one.
            // On the port Quillfern looks at, not adb's default.
            QPointer<QuillfernAppDelegate> self(this);
            Utils::startAdb(
                [self, done = std::move(done)](bool ok) {
                    if (self)
                        QMetaObject::invokeMethod(self, [done, ok] { done(ok); }, Qt::QueuedConnection);
                },
                connectionSettingsFromStore().port);
        };
    }
    if (!m_options.openUrl)
        m_options.openUrl = [](const QUrl &url) { QDesktopServices::openUrl(url); };
    if (!m_options.startDetached)
        m_options.startDetached = [](const QString &program, const QStringList &arguments) {
            return QProcess::startDetached(program, arguments);
        };
    m_reconnect = std::make_unique<ReconnectPolicy>(std::move(m_options.reconnectTimer));
    connect(m_reconnect.get(), &ReconnectPolicy::reconnectDue, this, &QuillfernAppDelegate::onReconnectTimerTick);
}

QuillfernAppDelegate::~QuillfernAppDelegate()
{
    applicationWillTerminate();
    m_documents.reset(); // joins its workers, which read through the datasource
    m_tools.reset();     // its windows watch the main window and the datasource's device
    if (m_logDatasource)
        m_logDatasource->setDelegate(nullptr);
    if (m_deviceSource)
        m_deviceSource->setDelegate(nullptr);
    m_devices.reset();
    // The table controller watches the window's table: it goes first.
    m_filters.reset();
    m_table.reset();
    m_window.reset();
    m_logDatasource.reset();
    m_deviceSource.reset();
}

bool QuillfernAppDelegate::autoReconnect() const
{
    return m_reconnect->autoReconnect();
}

// --- Application life cycle ---

void QuillfernAppDelegate::applicationDidFinishLaunching()
{
    QF_LOG(QStringLiteral("launch: %1 %2 (%3, %4) args:%5")
               .arg(QCoreApplication::applicationName(), QStringLiteral(QF_VERSION), QStringLiteral(QF_GIT_REVISION),
                    QStringLiteral(QF_BUILD_DATE), QCoreApplication::arguments().join(QLatin1Char(' '))));

    m_window = std::make_unique<MainWindow>();
    m_logDatasource = std::make_unique<LogDatasource>(nullptr, Settings::bufferCapacityOverride().value_or(BoundedBuffer::DefaultCapacity));
    if (m_options.logReaderHooks.startLogReader)
        m_logDatasource->setReaderHooks(m_options.logReaderHooks);
    m_logDatasource->setDelegate(this);
    ToolWindows::Platform platform;
    platform.openUrl = [this](const QUrl &url) { openUrl(url); };
    platform.startDetached = m_options.startDetached;
    platform.recordEvent = [this](const QString &name) { recordEvent(name); };
    platform.connectionSettings = connectionSettingsFromStore;
    m_tools = std::make_unique<ToolWindows>(m_window.get(), m_logDatasource.get(), std::move(platform));

    Settings::registerDefaults();
    m_table = std::make_unique<LogTableController>(m_window->logTable());
    m_filters = std::make_unique<SavedFiltersController>(m_window.get(), m_logDatasource.get(), m_table.get());
    m_filters->setStopLogging([this] { stopLogging(); });
    LogTableController::Collaborators with;
    with.searchField = m_window->searchField();
    with.filterList = m_window->filterList();
    with.filters = m_filters.get();
    with.sheetParent = m_window.get();
    with.clearLog = [this] { clearLog(); };
    with.setAppName = [this](const QString &name, const QString &pid) { m_logDatasource->setAppName(name, pid); };
    with.openUrl = [this](const QUrl &url) { openUrl(url); };
    m_table->setCollaborators(std::move(with));
    m_documents = std::make_unique<LogDocumentController>(m_window.get(), m_logDatasource.get(), m_table.get(),
                                                          m_filters.get(), m_reconnect.get());
    m_documents->setLeaveDevice([this] {
        stopLogging();
        m_isDatasourceDevice = false;
    });
    m_devices = std::make_unique<DeviceChoiceController>(m_window.get(), m_logDatasource.get(), m_reconnect.get());
    connect(m_devices.get(), &DeviceChoiceController::deviceChosen, this, &QuillfernAppDelegate::chooseDevice);
    connect(m_devices.get(), &DeviceChoiceController::deviceNotAuthorized, this,
            &QuillfernAppDelegate::adbDeviceNotAuthorized);
    connect(m_devices.get(), &DeviceChoiceController::noDeviceFound, this,
            [this] { adbDeviceNotFound(AdbError::logReaderError(1, QStringLiteral("no device"))); });
    connect(m_devices.get(), &DeviceChoiceController::adbNotReachable, this,
            [this] { adbNotRunningError(AdbError::logReaderError(2, QStringLiteral("ADB server not reachable"))); });
    m_table->readSettings();
    m_filters->readSettings();

    m_table->changeScrollToBottom(true);
    m_window->setAutoFollowChecked(m_table->scrollToBottom());

    m_deviceSource = std::make_unique<DeviceListDatasource>();
    m_deviceSource->setDelegate(this);
    passConnectionSettings(*m_logDatasource, *m_deviceSource);
    connect(&SettingsNotifier::instance(), &SettingsNotifier::changed, this, [this](const QString &key) {
        static const QStringList keys{SettingsKey::adbServer.toString(), SettingsKey::adbPort.toString(),
                                      SettingsKey::clearLogOnStart.toString(), SettingsKey::adbLogTags.toString()};
        if (m_logDatasource && m_deviceSource && keys.contains(key))
            passConnectionSettings(*m_logDatasource, *m_deviceSource);
    });

    m_window->filterList()->selectRow(0);

    connectWindow();
    connect(m_logDatasource.get(), &LogDatasource::logDataUpdated, this, &QuillfernAppDelegate::onLogUpdated);

    m_devices->clearDeviceList();
    setOfflineTitle(); // "No devices connected" until a stream starts
    resetConnectButton();
    startLogging();
    updateStatus();
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void QuillfernAppDelegate::connectWindow()
{
    const MainWindow::Actions &a = m_window->actions();
    connect(a.connect, &QAction::triggered, this, &QuillfernAppDelegate::onConnectButtonPressed);
    connect(a.autoFollow, &QAction::triggered, this, [this] { m_table->toggleAutoFollow(); });
    connect(m_table.get(), &LogTableController::scrollToBottomChanged, m_window.get(), &MainWindow::setAutoFollowChecked);
    connect(a.preferences, &QAction::triggered, this, &QuillfernAppDelegate::preferences);
    connect(a.remoteScreen, &QAction::triggered, this, &QuillfernAppDelegate::remoteScreenMonitor);
    connect(a.remoteScreenMenu, &QAction::triggered, this, &QuillfernAppDelegate::remoteScreenMonitor);
    connect(a.newWindow, &QAction::triggered, this, &QuillfernAppDelegate::newWindow);
    connect(a.open, &QAction::triggered, this, &QuillfernAppDelegate::openLogcatFile);
    connect(a.save, &QAction::triggered, this, &QuillfernAppDelegate::saveDocument);
    connect(a.saveAsText, &QAction::triggered, this, &QuillfernAppDelegate::saveDocumentAsText);
    connect(a.clearLog, &QAction::triggered, this, &QuillfernAppDelegate::clearLog);
    connect(a.copy, &QAction::triggered, this, &QuillfernAppDelegate::copy);
    connect(a.biggerFont, &QAction::triggered, m_table.get(), &LogTableController::biggerFont);
    connect(a.smallerFont, &QAction::triggered, m_table.get(), &LogTableController::smallerFont);
    connect(a.actualSize, &QAction::triggered, m_table.get(), &LogTableController::defaultFontSize);
    connect(a.logTagHelp, &QAction::triggered, this, &QuillfernAppDelegate::onLogTagHelp);
    connect(a.feedback, &QAction::triggered, this, &QuillfernAppDelegate::onHelpClick);
    connect(a.sharedFilters, &QAction::triggered, this, [this] { filterToolbarClicked(FilterListView::SharedFiltersSegment); });
    connect(a.about, &QAction::triggered, this, &QuillfernAppDelegate::orderFrontStandardAboutPanel);
    connect(m_window->filterList(), &FilterListView::segmentClicked, this, &QuillfernAppDelegate::filterToolbarClicked);
    connect(m_window->searchField(), &QLineEdit::textChanged, m_table.get(), &LogTableController::setSearchText);
    connect(m_window->searchField(), &QLineEdit::textEdited, m_table.get(), &LogTableController::search);
    connect(m_window->searchField(), &QLineEdit::returnPressed, m_table.get(), &LogTableController::findNext);
    connect(a.copyMessage, &QAction::triggered, m_table.get(), &LogTableController::copyMessageOnly);
    connect(a.viewMessage, &QAction::triggered, m_table.get(), &LogTableController::onViewText);
    connect(a.findNext, &QAction::triggered, m_table.get(), &LogTableController::findNext);
    connect(a.findPrevious, &QAction::triggered, m_table.get(), &LogTableController::findPrevious);
    connect(a.typingTerminal, &QAction::triggered, this, &QuillfernAppDelegate::openTypingTerminal);
    connect(m_table.get(), &LogTableController::viewTextRequested, this, &QuillfernAppDelegate::showTextViewer);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive)
            applicationWillResignActive();
    });
    connect(m_window.get(), &MainWindow::closing, this, &QuillfernAppDelegate::applicationWillTerminate);
}

void QuillfernAppDelegate::applicationWillTerminate()
{
    if (m_terminating)
        return;
    m_terminating = true;
    if (m_logDatasource)
        disconnect(m_logDatasource.get(), &LogDatasource::logDataUpdated, this, &QuillfernAppDelegate::onLogUpdated);
}

bool QuillfernAppDelegate::openFile(const QString &path)
{
    m_documents->openFile(path);
    return true;
}

void QuillfernAppDelegate::newWindow()
{
    const QString program = QCoreApplication::applicationFilePath();
    const bool ok = m_options.startDetached(program, {});
    QF_LOG(QStringLiteral("new window: %1 started:%2").arg(program).arg(ok));
}

void QuillfernAppDelegate::orderFrontStandardAboutPanel()
{
    if (!m_about)
        m_about = new AboutDialog(m_window.get());
    m_about->show();
    m_about->raise();
}

void QuillfernAppDelegate::applicationWillResignActive()
{
    m_table->setLiveSearching(false);
}

// --- Main-window commands ---

void QuillfernAppDelegate::clearLog()
{
    m_logDatasource->clearLog();
    m_table->showRows({});
    updateStatus();
}

void QuillfernAppDelegate::copy()
{
    if (!m_tools->copyFromViewer())
        m_table->copy();
}

RemoteScreenMonitorSheet *QuillfernAppDelegate::remoteScreenMonitorSheet() const
{
    return m_tools ? m_tools->remoteScreenMonitorSheet() : nullptr;
}

TextViewerWindowController *QuillfernAppDelegate::textViewer()
{
    return m_tools->textViewer();
}

void QuillfernAppDelegate::showTextViewer(const QString &text)
{
    m_tools->showTextViewer(text);
}

void QuillfernAppDelegate::filterToolbarClicked(int segment)
{
    switch (segment) {
    case FilterListView::AddSegment:
        m_filters->addFilter();
        break;
    case FilterListView::RemoveSegment:
        m_filters->removeFilter();
        break;
    case FilterListView::SharedFiltersSegment:
        openUrl(SharedFiltersUrl);
        break;
    default:
        break;
    }
}

void QuillfernAppDelegate::onLogTagHelp()
{
    openUrl(LogTagHelpUrl);
}

void QuillfernAppDelegate::onHelpClick()
{
    QUrl mail(QStringLiteral("mailto:") + FeedbackAddress);
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("subject"), QStringLiteral("Quillfern Feedback"));
    query.addQueryItem(QStringLiteral("body"), QString());
    mail.setQuery(query);
    openUrl(mail);
}

void QuillfernAppDelegate::preferences()
{
    QuillfernPreferences *prefs = QuillfernPreferences::sharedPrefsWindowController(m_window.get());
    if (!m_prefsConnected) {
        m_prefsConnected = true;
        connect(prefs, &QuillfernPreferences::fontsChanged, m_table.get(), &LogTableController::fontsChanged);
    }
    prefs->showWindow();
}

void QuillfernAppDelegate::remoteScreenMonitor()
{
    m_tools->remoteScreenMonitor();
}

QString QuillfernAppDelegate::typingScriptPath()
{
    return ToolWindows::typingScriptPath();
}

void QuillfernAppDelegate::openTypingTerminal()
{
    m_tools->openTypingTerminal();
}

void QuillfernAppDelegate::openUrl(const QUrl &url)
{
    QF_LOG(QStringLiteral("open url: %1").arg(url.toString()));
    m_options.openUrl(url);
}

// --- Connection ---

void QuillfernAppDelegate::onConnectButtonPressed()
{
    QF_LOG(QStringLiteral("isLogging:%1, autoReconnect:%2").arg(int(m_logDatasource->isLogging())).arg(int(autoReconnect())));
    m_reconnect->resetRetries();
    m_logDatasource->setQuietRetry(false);
    if (m_logDatasource->isLogging()) {
        stopLogging();
    } else if (autoReconnect()) {
        m_reconnect->setAutoReconnect(false);
        stopReconnectTimer();
        resetConnectButton();
        setOfflineTitle();
    } else {
        startLogging();
    }
}

void QuillfernAppDelegate::startLogging()
{
    m_isDatasourceDevice = true;
    passConnectionSettings(*m_logDatasource, *m_deviceSource);
    const QString deviceId = m_logDatasource->deviceId();
    if (deviceId.isEmpty()) {
        m_deviceSource->loadDeviceList();
        return;
    }
    // A new device starts with an empty log. Cleared before its stream starts: the stream's first
    // lines may be in the log before onLoggerStarted gets here.
    if (m_reconnect->isDifferentDevice(deviceId)) {
        QF_LOG(QStringLiteral("different device: %1 (was:%2)").arg(deviceId, m_reconnect->lastDeviceConnectedId()));
        clearLog();
    }
    m_logDatasource->startLogger();
}

void QuillfernAppDelegate::stopLogging()
{
    m_reconnect->setAutoReconnect(false);
    stopReconnectTimer();
    m_logDatasource->stopLogger();
}

void QuillfernAppDelegate::setOffline()
{
    m_reconnect->setAutoReconnect(false);
    m_logDatasource->stopLogger();
    m_logDatasource->setDeviceId(QString());
    resetConnectButton();
    setOfflineTitle();
}

bool QuillfernAppDelegate::deviceAway() const
{
    // A quiet retry's stream may be open, but until a line arrives the device counts as away.
    return autoReconnect() && (!m_logDatasource->isLogging() ||
                               (m_reconnect->quietRetry() && !m_logDatasource->sessionHasLines()));
}

void QuillfernAppDelegate::resetConnectButton()
{
    m_window->setConnectButton(ConnectionStatus::connectButton(m_logDatasource->isLogging(), autoReconnect(), deviceAway()));
}

void QuillfernAppDelegate::setOfflineTitle()
{
    m_window->setWindowTitle(ConnectionStatus::offlineTitle(m_reconnect->lastDeviceConnectedTitle(), autoReconnect()));
}

void QuillfernAppDelegate::updateStatus()
{
    const bool filtered = !m_filters->predicate().isNull();
    m_window->setStatusText(ConnectionStatus::statusText(filtered, quint64(m_table->model()->rowCount()),
                                                         m_logDatasource->logEventCount(),
                                                         m_logDatasource->isLogging(), QStringLiteral(QF_VERSION)));
}

void QuillfernAppDelegate::startReconnectTimer()
{
    m_reconnect->startReconnectTimer();
}

void QuillfernAppDelegate::stopReconnectTimer()
{
    m_reconnect->stopReconnectTimer();
}

void QuillfernAppDelegate::onReconnectTimerTick()
{
    if (!autoReconnect())
        return;
    // Departure: every retry used to write "Started logging" and "Disconnected", about 36 rows a minute
    // of an outage. Only the first retry writes them; each later one leaves a diagnostic line.
    const int retry = m_reconnect->noteRetry();
    m_logDatasource->setQuietRetry(m_reconnect->quietRetry());
    if (m_reconnect->quietRetry())
        QF_LOG(QStringLiteral("quiet retry %1 of %2").arg(retry).arg(m_reconnect->lastDeviceConnectedId()));
    startLogging();
}

void QuillfernAppDelegate::onLogUpdated()
{
    m_table->showRows(m_logDatasource->getDataFiltered());
    // A quiet retry's stream brought a line: the device is back, which its start row now tells.
    if (m_reconnect->quietRetry() && m_logDatasource->isLogging() && m_logDatasource->sessionHasLines()) {
        m_reconnect->resetRetries();
        m_logDatasource->setQuietRetry(false);
        onLoggerStarted();
    }
    updateStatus();
}

void QuillfernAppDelegate::onLoggerStarted()
{
    resetConnectButton();
    const QString deviceId = m_logDatasource->deviceId();
    if (deviceId.isEmpty()) {
        QF_LOG(QStringLiteral("load device list"));
        m_deviceSource->loadDeviceList();
        return;
    }
    QF_LOG(QStringLiteral("connecting to: %1").arg(deviceId));
    if (deviceAway()) {
        setOfflineTitle(); // a quiet retry: the device shows as away until a line arrives
        resetConnectButton();
        return;
    }
    m_logDatasource->logMessage(QStringLiteral("Started logging %1").arg(deviceId));
    const QString title = m_devices->titleForDevice(deviceId);
    m_reconnect->streamStarted(deviceId, title);
    m_window->setWindowTitle(title);
    resetConnectButton();
}

void QuillfernAppDelegate::onLoggerStopped()
{
    QF_LOG(QStringLiteral("isDatasourceDevice:%1").arg(int(m_isDatasourceDevice)));
    m_logDatasource->setDeviceId(QString());
    if (m_logDatasource->sessionHasLines()) // a stream that ran: its loss starts a new round of retries
        m_reconnect->resetRetries();
    resetConnectButton();
    if (m_isDatasourceDevice)
        setOfflineTitle();
    if (autoReconnect())
        startReconnectTimer();
    updateStatus();
}

void QuillfernAppDelegate::onMultipleDevicesConnected()
{
    m_deviceSource->loadDeviceList();
}

void QuillfernAppDelegate::onDeviceNotFound()
{
    m_logDatasource->setDeviceId(QString());
}

void QuillfernAppDelegate::onNoDeviceSelected()
{
    showDevicePicker();
}

void QuillfernAppDelegate::adbNotRunningError(const AdbError &error)
{
    QF_LOG(QStringLiteral("adb not running: %1").arg(error.toString()));
    onLoggerStopped();
    m_logDatasource->setDeviceId(QString());
    // The stream and the device list both report a missing server: one start serves both.
    if (m_adbStarting)
        return;
    m_adbStarting = true;
    m_window->setWindowTitle(QString::fromLatin1(ConnectionStatus::StartingAdbTitle));
    QPointer<QuillfernAppDelegate> self(this);
    m_options.startAdb([self](bool ok) {
        if (!self)
            return;
        self->m_adbStarting = false;
        self->setOfflineTitle();
        if (ok) {
            self->startLogging();
        } else if (self->autoReconnect()) {
            // A device was streaming: keep retrying, so a server that comes back (whoever starts it)
            // brings the stream back without the user pressing Run.
            QF_LOG(QStringLiteral("adb server not started; retrying"));
        } else {
            self->showAdbNotRunningError();
        }
    });
}

void QuillfernAppDelegate::adbDeviceNotFound(const AdbError &error)
{
    QF_LOG(QStringLiteral("device not found: %1").arg(error.toString()));
    showAlert(QStringLiteral("No Android device found. Make sure device is connected and developer mode is enabled."),
              QStringLiteral("No Android device found. \n\nMake sure device is connected and developer mode is enabled."));
}

void QuillfernAppDelegate::adbDeviceNotAuthorized(const QString &deviceId)
{
    recordEvent(QStringLiteral("error-not-authorized"));
    showAlert(QStringLiteral("Device Not Authorized. Allow USB debugging from device %1").arg(deviceId),
              QStringLiteral("Device Not Authorized\n\nAllow USB debugging from device %1").arg(deviceId));
}

void QuillfernAppDelegate::showAdbNotRunningError()
{
    recordEvent(QStringLiteral("error-adb-not-running"));
    showAlert(QStringLiteral("ADB not running. Make sure ADB is running. From Terminal: adb start-server"),
              QStringLiteral("ADB not running\n\nMake sure ADB is running.\n\nFrom Terminal: adb start-server"));
}

void QuillfernAppDelegate::recordEvent(const QString &name) const
{
    if (m_options.recordEvent)
        m_options.recordEvent(name);
}

void QuillfernAppDelegate::showAlert(const QString &logLine, const QString &alertText)
{
    setOffline();
    m_logDatasource->logMessage(logLine);
    m_window->showAlert(QStringLiteral("Alert"), alertText);
    emit alertShown(alertText);
}

void QuillfernAppDelegate::willPruneLogEvents()
{
    m_table->willPruneLogEvents();
}

void QuillfernAppDelegate::didPruneLogEvents(quint64)
{
    QPointer<LogTableController> table(m_table.get());
    QMetaObject::invokeMethod(this, [table] {
        if (table)
            table->didPruneLogEvents();
    }, Qt::QueuedConnection);
}

// --- Devices ---

QString QuillfernAppDelegate::getDeviceTitle(const DeviceEntry &device)
{
    return DeviceChoiceController::getDeviceTitle(device);
}

DevicePickerSheet *QuillfernAppDelegate::devicePickerSheet() const
{
    return m_devices ? m_devices->devicePickerSheet() : nullptr;
}

void QuillfernAppDelegate::onDevicesConnected(const QList<DeviceEntry> &devices)
{
    m_devices->onDevicesConnected(devices);
}

void QuillfernAppDelegate::onDeviceModel(const QString &deviceId, const QString &model)
{
    m_devices->onDeviceModel(deviceId, model);
}

void QuillfernAppDelegate::onDeviceListFailed(int errorType)
{
    m_devices->onDeviceListFailed(errorType);
}

void QuillfernAppDelegate::showDevicePicker()
{
    m_devices->showDevicePicker();
}

void QuillfernAppDelegate::chooseDevice(const QString &deviceId)
{
    m_logDatasource->setDeviceId(deviceId);
    startLogging();
}

// --- Log documents ---

void QuillfernAppDelegate::saveDocument()
{
    m_documents->saveDocument();
}

void QuillfernAppDelegate::saveDocumentAsText()
{
    m_documents->saveDocumentAsText();
}

void QuillfernAppDelegate::openLogcatFile()
{
    m_documents->openLogcatFile();
}

void QuillfernAppDelegate::setFileContents(const QList<LogEntry> &entries, const QString &path)
{
    m_documents->setFileContents(entries, path);
}
