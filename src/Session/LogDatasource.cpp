// SPDX-License-Identifier: MIT
#include "Session/LogDatasource.h"

#include "Helpers/Clock.h"
#include "Helpers/Logger.h"
#include "Helpers/MainThread.h"
#include "Helpers/Settings.h"
#include "Log/LogLineParser.h"
#include "Session/ProcessListAnswer.h"

#include <QThread>
#include <QThreadPool>
#include <QTimer>

namespace {

constexpr int QueueTimerIntervalMs = 500;

// Versions of the filters of every datasource, so a per-thread cache never mistakes one for another.
std::atomic<quint64> g_filterVersions{0};

QThread *startWorker(const QString &name, QObject **anchor)
{
    auto *thread = new QThread;
    thread->setObjectName(name);
    *anchor = new QObject;
    (*anchor)->moveToThread(thread);
    thread->start();
    return thread;
}

} // namespace

LogDatasource::LogDatasource(const Clock *clock, QObject *parent)
    : QObject(parent), m_clock(clock ? clock : &Clock::system())
{
    storeFilter(Filter()); // a version of its own
    if (const std::optional<int> size = Settings::bufferCapacityOverride())
        m_bufferCapacity = quint64(*size);

    m_queueTimer = new QTimer(this);
    m_queueTimer->setInterval(QueueTimerIntervalMs);
    connect(m_queueTimer, &QTimer::timeout, this, &LogDatasource::onQueueCheckTimerTick);

    m_logThread = startWorker(QStringLiteral("LogDatasource log"), &m_logAnchor);
    m_pidThread = startWorker(QStringLiteral("LogDatasource ps"), &m_pidAnchor);
    m_filterPool = new QThreadPool(this);
    m_filterPool->setMaxThreadCount(1);
}

LogDatasource::~LogDatasource()
{
    m_queueTimer->stop();
    m_isLogging = false;
    {
        // A worker waiting for the GUI thread (logMessage) would otherwise block its own join below.
        std::lock_guard lock(m_waitMutex);
        m_closing = true;
    }
    m_waitDone.notify_all();
    m_filterPool->waitForDone();

    QMetaObject::invokeMethod(
        m_logAnchor,
        [this] {
            if (m_logReader) {
                m_logReader->setDelegate(nullptr);
                delete m_logReader;
                m_logReader = nullptr;
            }
            m_workersFinished.fetch_add(1, std::memory_order_release);
            QThread::currentThread()->quit();
        },
        Qt::QueuedConnection);
    QMetaObject::invokeMethod(
        m_pidAnchor,
        [this] {
            if (m_pidReader) {
                m_pidReader->setDelegate(nullptr);
                delete m_pidReader;
                m_pidReader = nullptr;
            }
            m_workersFinished.fetch_add(1, std::memory_order_release);
            QThread::currentThread()->quit();
        },
        Qt::QueuedConnection);
    m_logThread->wait();
    m_pidThread->wait();
    // The joins above synchronise inside Qt, out of the thread sanitizer's sight; these two make the
    // workers' and the filter pool's last writes to this object visible before it is torn down.
    (void)m_workersFinished.load(std::memory_order_acquire);
    {
        std::lock_guard lock(m_logLock);
    }
    delete m_logAnchor;
    delete m_pidAnchor;
    delete m_logThread;
    delete m_pidThread;
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
// Session control (GUI thread)

void LogDatasource::setDeviceId(const QString &serial)
{
    withLog([&](LogState &s) {
        s.deviceId = serial;
        if (!serial.isEmpty() && serial != s.lastDeviceId) {
            QF_LOG(QStringLiteral("device changed: %1 (from %2)").arg(serial, s.lastDeviceId));
            // A new device replays nothing that was already shown.
            s.checkDates = false;
            s.lastDeviceId = serial;
        }
    });
}

QString LogDatasource::deviceId() const
{
    return withLog([](const LogState &s) { return s.deviceId; });
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
    const quint64 session = ++m_session;
    QMetaObject::invokeMethod(
        m_logAnchor, [this, session] { internalStartLogger(session); }, Qt::QueuedConnection);
    m_queueTimer->start();
}

void LogDatasource::internalStartLogger(quint64 session)
{
    loadPID();
    const QString device = withLog([&](LogState &s) {
        s.logData.setCapacity(m_bufferCapacity);
        return s.deviceId;
    });
    if (m_logReader) {
        // The previous session's reader; it reports nothing more once deleted.
        m_logReader->setDelegate(nullptr);
        delete m_logReader;
        m_logReader = nullptr;
    }
    m_logReaderSession = session;
    if (m_hooks.startLogReader) {
        m_hooks.startLogReader(device);
    } else {
        m_logReader = new LogReader;
        m_logReader->setDeviceId(device);
        m_logReader->setConnectionSettings(connectionSettings());
        m_logReader->setDelegate(this);
        m_logReader->connect();
    }
    QF_LOG(QStringLiteral("connecting to:%1").arg(device));
    postToMain([this] { notifyLoggerStarted(); });
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
    QMetaObject::invokeMethod(
        m_logAnchor,
        [this] {
            if (m_hooks.stopLogReader)
                m_hooks.stopLogReader();
            if (m_logReader)
                m_logReader->stop();
        },
        Qt::QueuedConnection);
    m_isLogging = false;
    // The stream ends: what it replays on the next start is dropped again.
    withLog([](LogState &s) {
        s.checkDates = true;
        s.numDuplicateRows = 0;
    });
    onQueueCheckTimerTick(); // announce what the timer would have
    m_queueTimer->stop();
}

void LogDatasource::clearLog()
{
    if (!assertMainThread())
        return;
    m_names.resetToUserNames();
    m_names.resetLookup();
    withLog([](LogState &s) {
        s.logData.reset();
        s.viewData.reset();
        ++s.contentGeneration;
    });
    notifyLogUpdated();
}

void LogDatasource::setLogDataFromFile(const QList<LogEntry> &entries)
{
    if (!assertMainThread())
        return;
    stopLogger();
    m_filterPool->start([this, entries] { fromFileJob(entries); });
}

void LogDatasource::fromFileJob(const QList<LogEntry> &entries)
{
    withLog([&](LogState &s) {
        s.logData.setCapacity(0); // a file is shown whole
        s.logData.addAllObjects(entries);
        ++s.contentGeneration;
    });
    postToMain([this] { notifyLogUpdated(); });
}

QList<LogEntry> LogDatasource::getDataFiltered() const
{
    if (logDataFilter().isNull())
        return getDataAll();
    return withLog([](const LogState &s) { return s.viewData.dataArray(); });
}

QList<LogEntry> LogDatasource::getDataAll() const
{
    return withLog([](const LogState &s) { return s.logData.dataArray(); });
}

quint64 LogDatasource::logEventCount() const
{
    return withLog([](const LogState &s) { return quint64(s.logData.count()); });
}

void LogDatasource::setAppName(const QString &name, const QString &pid)
{
    m_names.setUserName(pid, name);
    const int found = withLog([&](LogState &s) {
        s.unknownLogs.remove(pid);
        int n = 0;
        for (const LogEntry &entry : s.logData.dataArray()) {
            if (entry.fieldEquals(LogEntry::Pid, pid)) {
                entry.setApp(name);
                ++n;
            }
        }
        return n;
    });
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
    if (entry.isNull())
        return;
    withLog([&](LogState &s) {
        s.logData.addObject(entry);
        ++s.appendedTotal;
    });
}

void LogDatasource::logMessage(const QString &text)
{
    appendRow(LogLineParser::makeSystemMessage(text, m_counter));
    runOnMainAndWait([this] { notifyLogUpdated(); });
}

void LogDatasource::onQueueCheckTimerTick()
{
    const double now = m_clock->nowSeconds();
    if (withLog([&](LogState &s) { return s.throttle.flush(now); }))
        notifyDataChanged();
}

// ---------------------------------------------------------------------------------------------
// End of the stream and errors (log reader's thread)

void LogDatasource::logReaderStopped()
{
    // A reader of an older session (stopped, then a new start was asked for) does not end the new one.
    const bool current = m_logReaderSession == m_session.load();
    if (current)
        m_isLogging = false;
    m_addDashAforPS = true;
    const QString device = withLog([&](LogState &s) {
        if (current) {
            s.checkDates = true;
            s.numDuplicateRows = 0;
        }
        return s.deviceId;
    });
    m_names.resetToUserNames();
    QF_LOG(QStringLiteral("deviceId:%1").arg(device));
    logMessage(device.isEmpty() ? QStringLiteral("Disconnected") : QStringLiteral("Disconnected %1").arg(device));
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
    withLog([](LogState &s) { s.deviceId.clear(); });
    QMetaObject::invokeMethod(
        m_pidAnchor,
        [this] {
            if (m_pidReader) {
                m_pidReader->setDelegate(nullptr);
                delete m_pidReader;
                m_pidReader = nullptr;
            }
        },
        Qt::QueuedConnection);
}

// ---------------------------------------------------------------------------------------------
// Process names (process-list thread, and loadPID from any thread)

void LogDatasource::loadPID()
{
    if (!m_names.beginLookup(m_clock->nowSeconds()))
        return; // one is running; it asks again when it ends
    startPidLookup(m_addDashAforPS, deviceId());
}

void LogDatasource::startPidLookup(bool addDashA, const QString &device)
{
    if (m_hooks.startPidLookup) {
        m_hooks.startPidLookup(addDashA, device);
        return;
    }
    QMetaObject::invokeMethod(
        m_pidAnchor,
        [this, addDashA, device] {
            // Lookups are asked for from the log and process-list threads; one that arrives after the
            // destructor's clean-up on this thread must not create a reader nobody deletes.
            if (isClosing())
                return;
            if (m_pidReader) {
                m_pidReader->setDelegate(nullptr);
                delete m_pidReader;
            }
            m_pidReader = new PidReader;
            m_pidReader->setAddDashArg(addDashA);
            m_pidReader->setDeviceId(device);
            m_pidReader->setConnectionSettings(connectionSettings());
            m_pidReader->setDelegate(this);
            m_pidReader->connect();
        },
        Qt::QueuedConnection);
}

void LogDatasource::pidReceived(const std::optional<QString> &output)
{
    const QString text = output.value_or(QString());
    const ProcessListAnswer answer = ProcessListAnswer::parse(text);
    if (answer.isShort) {
        // A short answer is an error of the command ("bad pid" for "-A" on old devices): switch forms.
        QF_LOG(QStringLiteral("PID look up %1: ").arg(text));
        const bool addDash = !m_addDashAforPS.load();
        m_addDashAforPS = addDash;
        QF_LOG(QStringLiteral("Set addDashAforPS: %1 ").arg(addDash ? QStringLiteral("YES") : QStringLiteral("NO")));
        m_names.resetLookup();
        loadPID();
        return;
    }

    for (const ProcessNameMap::PsLine &ps : answer.processes) {
        if (m_names.setDeviceName(ps.pid, ps.name) != ProcessNameMap::DeviceNameResult::NewPid)
            continue;
        withLog([&](LogState &s) {
            const auto it = s.unknownLogs.constFind(ps.pid);
            if (it == s.unknownLogs.cend())
                return;
            for (const LogEntry &entry : it->entries)
                entry.setApp(ps.name);
            s.unknownLogs.erase(it);
        });
    }
    switch (answer.abort) {
    case ProcessListAnswer::Abort::MultipleDevices:
        QF_LOG(QStringLiteral("Multiple devices. Abort. (1)"));
        abortSession(&LogDatasource::notifyMultipleDevicesConnected);
        return;
    case ProcessListAnswer::Abort::DeviceNotFound:
        QF_LOG(QStringLiteral("Device not found. Abort. (1)"));
        abortSession(&LogDatasource::notifyDeviceNotFound);
        return;
    case ProcessListAnswer::Abort::None:
        break;
    }

    if (const std::optional<double> lookupTime = m_names.lookupTime())
        giveUpUnknownPidsBefore(*lookupTime);
    if (m_names.finishLookup())
        loadPID();
}

void LogDatasource::giveUpUnknownPidsBefore(double time)
{
    // Pids seen before this lookup started and still unnamed are gone from the device; their
    // entries keep an empty "app".
    withLog([&](LogState &s) {
        for (auto it = s.unknownLogs.begin(); it != s.unknownLogs.end();) {
            if (it->firstSeen < time)
                it = s.unknownLogs.erase(it);
            else
                ++it;
        }
    });
}

void LogDatasource::pidFailedWithError(const AdbError &error)
{
    // The lookup stays marked as running: no further lookup starts until clearLog().
    QF_LOG(QStringLiteral("TODO: handled: %1").arg(error.toString()));
}

void LogDatasource::abortSession(void (LogDatasource::*notify)())
{
    m_isLogging = false;
    postToMain([this, notify] {
        (this->*notify)();
        stopLogger();
        // stopLogger does nothing now that the flag is down; end the stream and the timer here.
        QMetaObject::invokeMethod(
            m_logAnchor,
            [this] {
                if (m_hooks.stopLogReader)
                    m_hooks.stopLogReader();
                if (m_logReader)
                    m_logReader->stop();
            },
            Qt::QueuedConnection);
        m_queueTimer->stop();
    });
}

// ---------------------------------------------------------------------------------------------
// Filtering (one-thread pool)

Filter LogDatasource::logDataFilter() const
{
    std::lock_guard lock(m_filterMutex);
    return m_logDataFilter;
}

void LogDatasource::storeFilter(const Filter &filter)
{
    std::lock_guard lock(m_filterMutex); // a leaf: nothing else is taken under it
    m_logDataFilter = filter;
    m_filterVersion.store(g_filterVersions.fetch_add(1) + 1, std::memory_order_release);
}

FilterEvaluator *LogDatasource::lineFilter() const
{
    // The line path reads the filter for every line: a per-thread evaluator, refreshed only when the
    // filter changed, spares it the mutex, the reference counting and its text buffers. Versions are
    // unique across datasources.
    thread_local quint64 cachedVersion = 0;
    thread_local std::unique_ptr<FilterEvaluator> cached;
    if (m_filterVersion.load(std::memory_order_acquire) != cachedVersion) {
        std::lock_guard lock(m_filterMutex);
        cached = m_logDataFilter.isNull() ? nullptr : std::make_unique<FilterEvaluator>(m_logDataFilter);
        cachedVersion = m_filterVersion.load(std::memory_order_relaxed);
    }
    return cached.get();
}

void LogDatasource::setLogDataFilter(const Filter &filter)
{
    m_filterPool->start([this, filter] { filterJob(filter); });
}

void LogDatasource::filterJob(const Filter &filter)
{
    if (filter.isNull()) {
        storeFilter(Filter());
        withLog([](LogState &s) { s.viewData.reset(); });
        postToMain([this] { notifyLogUpdated(); });
        return;
    }

    // New lines use the new filter from here on; the snapshot is filtered outside the lock, then the
    // lines that arrived meanwhile are filtered again under it, so none is lost from the view.
    storeFilter(filter);
    QList<LogEntry> snapshot;
    quint64 snapshotTotal = 0;
    quint64 generation = 0;
    withLog([&](const LogState &s) {
        snapshot = s.logData.dataArray();
        snapshotTotal = s.appendedTotal;
        generation = s.contentGeneration;
    });
    QString error;
    QList<LogEntry> matches = filterEntries(snapshot, filter, &error);

    qsizetype count = 0;
    if (error.isEmpty()) {
        count = withLog([&](LogState &s) -> qsizetype {
            const QList<LogEntry> current = s.logData.dataArray();
            const quint64 added = s.appendedTotal - snapshotTotal;
            if (s.contentGeneration != generation || added > quint64(current.size())) {
                // Replaced or pruned past the snapshot meanwhile: filter the log as it is now.
                matches = filterEntries(current, filter, &error);
            } else {
                for (qsizetype i = current.size() - qsizetype(added); i < current.size() && error.isEmpty(); ++i) {
                    if (filter.matches(current[i], &error))
                        matches.append(current[i]);
                }
            }
            if (!error.isEmpty())
                return 0;
            s.viewData.addAllObjects(matches);
            return s.viewData.count();
        });
    }

    if (!error.isEmpty()) {
        storeFilter(Filter());
        withLog([](LogState &s) { s.viewData.reset(); });
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

bool LogDatasource::isClosing() const
{
    std::lock_guard lock(m_waitMutex);
    return m_closing;
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

// ---------------------------------------------------------------------------------------------
// State for diagnostics and tests

quint64 LogDatasource::logDataCapacity() const
{
    return withLog([](const LogState &s) { return s.logData.capacity(); });
}

bool LogDatasource::checkDates() const
{
    return withLog([](const LogState &s) { return s.checkDates; });
}

QString LogDatasource::lastDateReceived() const
{
    return withLog([](const LogState &s) { return s.lastTimedEntry.value(LogEntry::Time); });
}

quint64 LogDatasource::numDuplicateRows() const
{
    return withLog([](const LogState &s) { return s.numDuplicateRows; });
}

qsizetype LogDatasource::unknownPidCount() const
{
    return withLog([](const LogState &s) { return s.unknownLogs.size(); });
}
