// SPDX-License-Identifier: MIT
#include "Session/LogDatasource.h"

#include "Android/AdbSocketThread.h"
#include "Helpers/Clock.h"
#include "Helpers/Logger.h"
#include "Helpers/MainThread.h"
#include "Log/LogLineParser.h"

#include <QThreadPool>
#include <QTimer>

namespace {

constexpr int QueueTimerIntervalMs = 500;

} // namespace

LogDatasource::LogDatasource(const Clock *clock, quint64 bufferCapacity, QObject *parent)
    : QObject(parent),
      m_clock(clock ? clock : &Clock::system()),
      m_store(*m_clock),
      m_namer(*m_clock),
      m_bufferCapacity(bufferCapacity)
{
    m_queueTimer = new QTimer(this);
    m_queueTimer->setInterval(QueueTimerIntervalMs);
    connect(m_queueTimer, &QTimer::timeout, this, &LogDatasource::onQueueCheckTimerTick);
    m_filterPool = new QThreadPool(this);
    m_filterPool->setMaxThreadCount(1);
}

LogDatasource::~LogDatasource()
{
    m_queueTimer->stop();
    m_isLogging = false;
    {
        // A reader waiting for the GUI thread (logMessage) would otherwise hold up the wait below.
        std::lock_guard lock(m_waitMutex);
        m_closing = true;
    }
    m_waitDone.notify_all();
    m_filterPool->waitForDone();
    m_readers.close();
}

void LogDatasource::setDelegate(LogDatasourceDelegate *delegate)
{
    if (!assertMainThread())
        return;
    m_delegate = delegate;
}

LogDatasourceDelegate *LogDatasource::delegate() const
{
    return m_delegate;
}

void LogDatasource::setConnectionSettings(const AdbConnectionSettings &settings)
{
    QMutexLocker lock(&m_settingsMutex);
    m_connectionSettings = settings;
}

AdbConnectionSettings LogDatasource::connectionSettings() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_connectionSettings;
}

void LogDatasource::setReaderHooks(ReaderHooks hooks)
{
    m_hooks = std::move(hooks);
}

// ---------------------------------------------------------------------------------------------
// Readers

std::unique_ptr<AdbSocketThread> LogDatasource::createLogReader(const QString &deviceId)
{
    auto reader = std::make_unique<LogReader>();
    reader->setDeviceId(deviceId);
    reader->setConnectionSettings(connectionSettings());
    reader->setDelegate(this);
    return std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("LogDatasource log"));
}

std::unique_ptr<AdbSocketThread> LogDatasource::createPidReader(bool addDashA, const QString &deviceId)
{
    auto reader = std::make_unique<PidReader>();
    reader->setAddDashArg(addDashA);
    reader->setDeviceId(deviceId);
    reader->setConnectionSettings(connectionSettings());
    reader->setDelegate(this);
    return std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("LogDatasource ps"));
}

void LogDatasource::stopLogReader()
{
    if (m_hooks.stopLogReader)
        m_hooks.stopLogReader();
    m_readers.post(SessionReaders::Log, [](AdbSocket &reader) { reader.stop(); });
}

// ---------------------------------------------------------------------------------------------
// Session control (GUI thread)

void LogDatasource::setDeviceId(const QString &serial)
{
    m_store.setDeviceId(serial);
}

QString LogDatasource::deviceId() const
{
    return m_store.deviceId();
}

QDateTime LogDatasource::startTime() const
{
    return m_startTime;
}

void LogDatasource::startLogger()
{
    if (!assertMainThread())
        return;
    if (m_isLogging) {
        QF_LOG(QStringLiteral("ERROR: startLogger called but it was already running."));
        return;
    }
    m_isLogging = true;
    m_startTime = QDateTime::currentDateTime();
    m_logReaderSession = ++m_session;
    m_sessionHasLines = false;
    loadPID();
    m_store.setCapacity(m_bufferCapacity);
    const QString device = m_store.deviceId();
    if (m_hooks.startLogReader)
        m_hooks.startLogReader(device);
    else
        m_readers.replace(SessionReaders::Log, createLogReader(device)); // the previous session's ends
    QF_LOG(QStringLiteral("connecting to:%1").arg(device));
    postToMain([this] { notifyLoggerStarted(); });
    m_queueTimer->start();
}

void LogDatasource::stopLogger()
{
    if (!assertMainThread())
        return;
    if (!m_isLogging) {
        QF_LOG(QStringLiteral("already stopped"));
        return;
    }
    QF_LOG(QStringLiteral("isLogging:%1, deviceId:%2").arg(int(m_isLogging.load())).arg(deviceId()));
    stopLogReader();
    m_isLogging = false;
    // The stream ends: what it replays on the next start is dropped again.
    m_store.endOfStream(true);
    onQueueCheckTimerTick(); // announce what the timer would have
    m_queueTimer->stop();
}

void LogDatasource::clearLog()
{
    if (!assertMainThread())
        return;
    m_namer.reset();
    m_store.clear();
    notifyLogUpdated();
}

void LogDatasource::setLogDataFromFile(const QList<LogEntry> &entries)
{
    if (!assertMainThread())
        return;
    stopLogger();
    m_filterPool->start([this, entries] {
        m_store.replaceWithFile(entries);
        postToMain([this] { notifyLogUpdated(); });
    });
}

QList<LogEntry> LogDatasource::getDataFiltered() const
{
    if (logDataFilter().isNull())
        return getDataAll();
    return m_store.view();
}

QList<LogEntry> LogDatasource::getDataAll() const
{
    return m_store.all();
}

quint64 LogDatasource::logEventCount() const
{
    return m_store.count();
}

void LogDatasource::setAppName(const QString &name, const QString &pid)
{
    m_namer.setUserName(pid, name);
    const int found = m_store.nameAll(pid, name);
    QF_LOG(QStringLiteral("name:%1, pid:%2, found:%3").arg(name, pid).arg(found));
    runOnMainAndWait([this] { notifyLogUpdated(); });
}

LogFileResult LogDatasource::readTextFile(const QString &path)
{
    clearLog();
    return readTextFileAfterClear(path);
}

LogFileResult LogDatasource::readTextFileAfterClear(const QString &path)
{
    return LogDocument::readTextFile(path, m_counter);
}

QString LogDatasource::description() const
{
    return QStringLiteral("logDataSrouce: isLogging=%1").arg(m_isLogging ? QStringLiteral("Yes") : QStringLiteral("No"));
}

// ---------------------------------------------------------------------------------------------
// Entries (any thread)

quint64 LogDatasource::getIndex()
{
    return m_counter.getIndex();
}

void LogDatasource::appendRow(const LogEntry &entry)
{
    if (!entry.isNull())
        m_store.append(entry);
}

void LogDatasource::logMessage(const QString &text)
{
    appendRow(LogLineParser::makeSystemMessage(text, m_counter));
    runOnMainAndWait([this] { notifyLogUpdated(); });
}

void LogDatasource::onQueueCheckTimerTick()
{
    if (m_store.flushThrottle())
        notifyDataChanged();
}

// ---------------------------------------------------------------------------------------------
// End of the stream and errors (log reader's thread)

void LogDatasource::logReaderStopped()
{
    // A retired reader (its session replaced while it was ending) has nothing more to say.
    if (m_readers.isRetiredLogReaderThread()) {
        QF_LOG(QStringLiteral("end of a replaced stream"));
        return;
    }
    // A FAIL reply ends a stream twice (the reply, then the server's close): one report per session.
    const quint64 session = m_logReaderSession.load();
    if (m_stopReportedSession.exchange(session) == session)
        return;
    // A reader of an older session (stopped, then a new start was asked for) does not end the new one.
    const bool current = session == m_session.load();
    if (current)
        m_isLogging = false;
    const QString device = m_store.endOfStream(current);
    m_namer.endOfStream();
    QF_LOG(QStringLiteral("deviceId:%1").arg(device));
    const QString row = device.isEmpty() ? QStringLiteral("Disconnected") : QStringLiteral("Disconnected %1").arg(device);
    if (m_quietRetry && !m_sessionHasLines)
        QF_LOG(QStringLiteral("retry ended: %1").arg(row)); // only the first retry writes its rows
    else
        logMessage(row);
    if (!current)
        return;
    postToMain([this] {
        notifyLoggerStopped();
        stopLogger();
        if (!m_isLogging) {
            onQueueCheckTimerTick();
            m_queueTimer->stop();
        }
    });
}

void LogDatasource::logReaderStoppedWithError(const AdbError &error)
{
    if (error.failureReason.contains(QLatin1String("more than one device"))) {
        postToMain([this] {
            if (m_delegate)
                m_delegate->onNoDeviceSelected();
        });
    }
    logReaderStopped();
}

void LogDatasource::adbNotRunningError(const AdbError &error)
{
    logMessage(QStringLiteral("ADB not running. In terminal run \"ADB start-server\""));
    postToMain([this, error] {
        if (m_delegate)
            m_delegate->adbNotRunningError(error);
        stopLogger();
    });
    dropDeviceAndLookup();
}

void LogDatasource::adbDeviceNotFound(const AdbError &error)
{
    logMessage(QStringLiteral("No Android device found. Make sure it is connected and developer mode is enabled."));
    postToMain([this, error] {
        if (m_delegate)
            m_delegate->adbDeviceNotFound(error);
        stopLogger();
    });
    dropDeviceAndLookup();
}

void LogDatasource::dropDeviceAndLookup()
{
    m_store.clearDeviceId();
    m_readers.replace(SessionReaders::Pid, nullptr);
    // The retired lookup will not answer any more.
    m_namer.lookupFailed(QStringLiteral("the device is gone"));
}

// ---------------------------------------------------------------------------------------------
// Process names (lookup threads, and loadPID from any thread)

void LogDatasource::loadPID()
{
    startLookup(m_namer.requestLookups());
}

void LogDatasource::startLookup(std::optional<bool> addDashA)
{
    if (!addDashA)
        return; // none due, or one is running and asks again when it ends
    const QString device = m_store.deviceId();
    if (m_hooks.startPidLookup)
        m_hooks.startPidLookup(*addDashA, device);
    else
        m_readers.replace(SessionReaders::Pid, createPidReader(*addDashA, device));
}

void LogDatasource::pidReceived(const std::optional<QString> &output)
{
    const ProcessNamer::Outcome outcome = m_namer.applyAnswer(output, m_store);
    switch (outcome.abort) {
    case ProcessListAnswer::Abort::MultipleDevices:
        abortSession(&LogDatasource::notifyMultipleDevicesConnected);
        return;
    case ProcessListAnswer::Abort::DeviceNotFound:
        abortSession(&LogDatasource::notifyDeviceNotFound);
        return;
    case ProcessListAnswer::Abort::None:
        break;
    }
    startLookup(outcome.lookupWithDashA);
}

void LogDatasource::pidFailedWithError(const AdbError &error)
{
    m_namer.lookupFailed(error.toString());
}

void LogDatasource::abortSession(void (LogDatasource::*notify)())
{
    m_isLogging = false;
    postToMain([this, notify] {
        (this->*notify)();
        stopLogger();
        // stopLogger does nothing now that the flag is down; end the stream and the timer here.
        stopLogReader();
        m_queueTimer->stop();
    });
}

// ---------------------------------------------------------------------------------------------
// Filtering (one-thread pool)

Filter LogDatasource::logDataFilter() const
{
    return m_filter.get();
}

void LogDatasource::setLogDataFilter(const Filter &filter)
{
    const quint64 request = ++m_filterRequests;
    m_filterPool->start([this, filter, request] { filterJob(filter, request); });
}

void LogDatasource::filterJob(const Filter &filter, quint64 request)
{
    // Every key in the search box asks for a whole-log pass; over a large file they used to queue up, and
    // the view showed an older key's rows for seconds. A newer request ends this one (the newest is queued
    // behind it and announces the view).
    const auto superseded = [this, request] { return m_filterRequests.load() != request; };
    if (superseded())
        return;
    if (filter.isNull()) {
        m_filter.set(Filter());
        m_store.clearView();
        postToMain([this] { notifyLogUpdated(); });
        return;
    }

    // New lines use the new filter from here on; the snapshot is filtered outside the lock, then the
    // lines that arrived meanwhile are filtered again under it, so none is lost from the view.
    m_filter.set(filter);
    const LogStore::Snapshot snapshot = m_store.snapshot();
    QString error;
    QList<LogEntry> matches = filterEntries(snapshot.entries, filter, &error, superseded);
    if (superseded()) {
        QF_LOG(QStringLiteral("setLogDataFilter: %1 superseded").arg(filter.toString()));
        return;
    }
    const qsizetype count = error.isEmpty() ? m_store.commitFilter(snapshot, std::move(matches), filter, &error) : -1;
    if (!error.isEmpty()) {
        m_filter.set(Filter());
        m_store.clearView();
        QF_LOG(QStringLiteral("setLogDataFilter: %1 failed: %2").arg(filter.toString(), error));
        postToMain([this, error] {
            emit filterCorrupt(QString::fromLatin1(FilterCorruptTitle), QString::fromLatin1(FilterCorruptButton), error);
            notifyLogUpdated();
        });
        return;
    }
    QF_LOG(QStringLiteral("setLogDataFilter: %1, #%2").arg(filter.toString()).arg(count));
    postToMain([this] { notifyLogUpdated(); });
}

// ---------------------------------------------------------------------------------------------
// Announcements

void LogDatasource::callDelegate(void (LogDatasourceDelegate::*callback)())
{
    if (!assertMainThread())
        return;
    if (m_delegate)
        (m_delegate->*callback)();
}

void LogDatasource::notifyLoggerStarted()
{
    callDelegate(&LogDatasourceDelegate::onLoggerStarted);
}

void LogDatasource::notifyLoggerStopped()
{
    callDelegate(&LogDatasourceDelegate::onLoggerStopped);
}

void LogDatasource::notifyLogUpdated()
{
    callDelegate(&LogDatasourceDelegate::onLogUpdated);
}

void LogDatasource::notifyMultipleDevicesConnected()
{
    callDelegate(&LogDatasourceDelegate::onMultipleDevicesConnected);
}

void LogDatasource::notifyDeviceNotFound()
{
    callDelegate(&LogDatasourceDelegate::onDeviceNotFound);
}

void LogDatasource::notifyDataChanged()
{
    // Coalesced by name: while one notification is on its way, later changes ride along with it.
    if (m_dataChangedPending.exchange(true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_dataChangedPending = false;
            emit logDataUpdated();
        },
        Qt::QueuedConnection);
}

void LogDatasource::postToMain(std::function<void()> work)
{
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void LogDatasource::runOnMainAndWait(std::function<void()> work)
{
    if (isMainThread()) {
        work();
        return;
    }
    auto done = std::make_shared<bool>(false); // guarded by m_waitMutex
    QMetaObject::invokeMethod(
        this,
        [this, work = std::move(work), done] {
            work();
            {
                std::lock_guard lock(m_waitMutex);
                *done = true;
            }
            m_waitDone.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock lock(m_waitMutex);
    m_waitDone.wait(lock, [&] { return *done || m_closing; });
}
