// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbError.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "Log/BoundedBuffer.h"
#include "Filters/Filter.h"
#include "Helpers/UpdateThrottle.h"
#include "Log/LogDocument.h"
#include "Log/LogEntry.h"
#include "Log/LogLineParser.h"
#include "Session/ProcessNameMap.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

class Clock;
class QThread;
class QThreadPool;
class QTimer;

// What the datasource tells the application controller. Every call arrives on the GUI thread.
// Order within one live session: onLoggerStarted; any number of onLogUpdated; at most one of the
// failure reports (adbNotRunningError, adbDeviceNotFound, onNoDeviceSelected, onMultipleDevicesConnected,
// onDeviceNotFound); onLoggerStopped when the stream ends (also after the user's stopLogger).
class LogDatasourceDelegate
{
public:
    virtual ~LogDatasourceDelegate() = default;
    virtual void onLoggerStarted() = 0;
    virtual void onLoggerStopped() = 0;
    virtual void onLogUpdated() = 0;
    virtual void onMultipleDevicesConnected() = 0;
    virtual void onDeviceNotFound() = 0;
    virtual void onNoDeviceSelected() = 0;
    virtual void adbNotRunningError(const AdbError &error) = 0;
    virtual void adbDeviceNotFound(const AdbError &error) = 0;
    // Part of the protocol for observers of pruning; the datasource never sends them.
    virtual void willPruneLogEvents() {}
    virtual void didPruneLogEvents(quint64 count) { Q_UNUSED(count); }
};

// The log model of the main window: the full log and the filtered view, a live logging session
// against one device with process names, duplicate removal across reconnects and throttled change
// announcements.
//
// Threads:
// - The object lives on the GUI thread; every public method but the reader callbacks, logMessage,
//   appendRow, getIndex and the read accessors is to be called there.
// - The log reader lives on a worker thread of the datasource's own (an event loop): its callbacks
//   (the LogReaderDelegate methods) run there. Process-list lookups run on a second worker thread.
// - Filtering the whole log and loading a file run on a one-thread pool, in call order.
//
// Locks: the log lock (a recursive mutex) guards both buffers, the entries waiting for a name, the
// duplicate state, the device serial and the update throttle. The pid lock is ProcessNameMap's own.
// The two are never held together: every use of the log lock goes through withLog(), whose body does
// not touch m_names, and ProcessNameMap takes its lock only inside its own methods. Nothing waits for
// another thread while holding either.
class LogDatasource : public QObject, public LogReaderDelegate, public PidReaderDelegate
{
    Q_OBJECT

public:
    // The change notification: logDataUpdated() is this notification (the table listens to it).
    static constexpr const char *VXB_ON_LOG_DATA_UPDATED = "VXB_ON_LOG_DATA_UPDATED";

    // Texts of the alert for a filter that cannot be evaluated (see filterCorrupt()).
    static constexpr const char *FilterCorruptTitle = "Filter is corrupt";
    static constexpr const char *FilterCorruptButton = "OK";

    // Seams for tests: when set, these replace the creation and connection of the real readers.
    // They run on the worker thread that would have connected the reader.
    struct ReaderHooks
    {
        std::function<void(const QString &deviceId)> startLogReader;
        std::function<void()> stopLogReader;
        std::function<void(bool addDashA, const QString &deviceId)> startPidLookup;
    };

    // `clock` (not owned, outlives the datasource) times the update throttle; null means the system clock.
    explicit LogDatasource(const Clock *clock = nullptr, QObject *parent = nullptr);
    ~LogDatasource() override; // stops the session, joins the worker threads and the filter pool

    void setDelegate(LogDatasourceDelegate *delegate); // weak; GUI thread
    LogDatasourceDelegate *delegate() const;
    void setReaderHooks(ReaderHooks hooks); // before the first session
    // The server and reader options of every later reader; any thread.
    void setConnectionSettings(const AdbConnectionSettings &settings);

    // --- Called by the application controller (GUI thread) ---
    void setDeviceId(const QString &serial);
    QString deviceId() const;
    bool isLogging() const { return m_isLogging.load(); }
    QDateTime startTime() const;
    void startLogger();
    void stopLogger(); // idempotent
    void clearLog();
    // Refilters the whole log off the GUI thread; a null Filter clears it. A filter that cannot be
    // evaluated is dropped and filterCorrupt() is emitted.
    void setLogDataFilter(const Filter &filter);
    Filter logDataFilter() const;
    // Stops logging, then (on the pool) makes the full log unbounded and replaces its content.
    void setLogDataFromFile(const QList<LogEntry> &entries);
    QList<LogEntry> getDataFiltered() const; // snapshot; without a filter, getDataAll()
    QList<LogEntry> getDataAll() const;      // snapshot
    quint64 logEventCount() const;
    // The user's name for a pid: wins over the device's, survives reconnects and clearing.
    void setAppName(const QString &name, const QString &pid);
    QString description() const; // "logDataSrouce: isLogging=Yes" / "=No"
    // Clears the log, then reads a log text file (encoding fallbacks, format detection), numbering its
    // entries from this datasource's counter. Hand result.entries to setLogDataFromFile.
    LogFileResult readTextFile(const QString &path);
    // Any thread: the reading half of readTextFile, for a worker, after clearLog() ran on the GUI thread.
    LogFileResult readTextFileAfterClear(const QString &path);

    // --- Any thread ---
    // Appends a system message entry (type "QF") and runs notifyLogUpdated on the GUI thread, waiting.
    void logMessage(const QString &text);
    void appendRow(const LogEntry &entry); // to the full log only; a null entry is ignored
    quint64 getIndex();                    // next "idx"

    // Trailing announcement, run by the 0.5 s timer of a live session; public so tests drive it.
    void onQueueCheckTimerTick();

    // State for diagnostics and tests (each read under its lock).
    quint64 bufferCapacity() const { return m_bufferCapacity; }
    quint64 logDataCapacity() const;
    bool checkDates() const;
    QString lastDateReceived() const;
    quint64 numDuplicateRows() const;
    bool addDashAforPS() const { return m_addDashAforPS.load(); }
    bool pidLookupRunning() const { return m_names.lookupRunning(); }
    QString appNameForPid(const QString &pid) const { return m_names.nameFor(pid); }
    qsizetype unknownPidCount() const;

    // --- LogReaderDelegate: the log reader's worker thread ---
    void logLineReceived(const std::optional<QString> &line) override;
    // The reader's byte form: parsed straight from the UTF-8, no QString in between.
    void logLineDataReceived(QByteArrayView line) override;
    // Lines that arrived together: parsed, then taken under the log lock in one go.
    void logLinesDataReceived(QByteArrayView lines) override;
    void logReaderStopped() override;
    void logReaderStoppedWithError(const AdbError &error) override;
    void adbNotRunningError(const AdbError &error) override;
    void adbDeviceNotFound(const AdbError &error) override;

    // --- PidReaderDelegate: the process-list worker thread ---
    void pidReceived(const std::optional<QString> &output) override;
    void pidFailedWithError(const AdbError &error) override;

signals:
    // The VXB_ON_LOG_DATA_UPDATED notification: the log changed. Emitted on the GUI thread, coalesced:
    // at most one is pending at a time, however many changes are announced meanwhile.
    void logDataUpdated();
    // Whole-log filtering failed: the filter is cleared and the view emptied. The window shows an alert
    // with this title (FilterCorruptTitle), the button text (FilterCorruptButton) and the reason.
    void filterCorrupt(const QString &title, const QString &button, const QString &reason);

private:
    // Entries of a pid seen without a name, waiting for a process-list answer.
    struct UnknownPid
    {
        double firstSeen = 0; // seconds of m_clock
        QList<LogEntry> entries;
    };
    // Everything under the log lock.
    struct LogState
    {
        BoundedBuffer logData;
        BoundedBuffer viewData;
        QHash<QString, UnknownPid> unknownLogs;
        QString deviceId;
        QString lastDeviceId;
        LogEntry lastTimedEntry; // newest kept entry with a time: its "time" is lastDateReceived
        bool checkDates = true;
        quint64 numDuplicateRows = 0;
        UpdateThrottle throttle;
        quint64 appendedTotal = 0; // entries ever added to logData: lets refiltering catch up
        quint64 contentGeneration = 0; // bumped when logData is emptied or replaced
    };

    // The only ways to the log lock. A body must not call into m_names (the pid lock) nor wait for
    // another thread: that is what keeps the two locks from ever being held together.
    template <typename F> decltype(auto) withLog(F &&body) const
    {
        std::lock_guard lock(m_logLock);
        return body(m_log);
    }
    template <typename F> decltype(auto) withLog(F &&body)
    {
        std::lock_guard lock(m_logLock);
        return body(m_log);
    }

    void internalStartLogger(quint64 session);
    void loadPID();
    void startPidLookup(bool addDashA, const QString &deviceId);
    void filterJob(const Filter &filter);
    void storeFilter(const Filter &filter);
    // The current filter's evaluator for this thread, null without a filter; valid until the next
    // call on this thread.
    FilterEvaluator *lineFilter() const;
    void fromFileJob(const QList<LogEntry> &entries);
    // The live line path (LogDatasourceLive.cpp).
    struct LiveLine
    {
        LogEntry entry; // null when the line yields none
        QByteArrayView raw;
        bool utf8 = true;
        bool matched = false;
    };
    LogEntry parseLiveLine(QByteArrayView utf8Line);
    void parseLiveLine(QByteArrayView utf8Line, FilterEvaluator *filter, LiveLine *out);
    // Appends the entries under one log lock, taking them out of `lines`; `text` is the line as
    // received by logLineReceived, for the diagnostic of a bad line.
    void commitLiveLines(LiveLine *lines, size_t count, bool hasFilter, const QString *text);
    void giveUpUnknownPidsBefore(double time);

    // GUI-thread announcements; each asserts the thread.
    // The delegate's callback, on the GUI thread only.
    void callDelegate(void (LogDatasourceDelegate::*callback)());
    void notifyLoggerStarted();
    void notifyLoggerStopped();
    void notifyLogUpdated();
    void notifyMultipleDevicesConnected();
    void notifyDeviceNotFound();
    // Posts logDataUpdated unless one is pending; any thread.
    void notifyDataChanged();

    void postToMain(std::function<void()> work);
    // Runs work on the GUI thread and waits for it (directly when already there). The wait ends early
    // when the datasource is being destroyed, so a worker never blocks its own join.
    void runOnMainAndWait(std::function<void()> work);
    void abortSession(void (LogDatasource::*notify)()); // the process-list aborts
    void dropDeviceAndLookup(); // after an ADB failure: forget the serial and the process reader

    const Clock *m_clock;
    LogDatasourceDelegate *m_delegate = nullptr; // GUI thread only
    ReaderHooks m_hooks;                          // fixed before workers use it
    mutable QMutex m_settingsMutex;               // readers are made on the worker threads
    AdbConnectionSettings m_connectionSettings;
    AdbConnectionSettings connectionSettings() const;

    // Log lock and its state.
    mutable std::recursive_mutex m_logLock;
    LogState m_log;

    // Pid lock and the process map.
    ProcessNameMap m_names;

    // The current filter: read by every line without the log lock. Its own leaf mutex guards only the
    // handle (copied out, never evaluated under it).
    mutable std::mutex m_filterMutex;
    Filter m_logDataFilter;
    std::atomic<quint64> m_filterVersion{0}; // changes with m_logDataFilter

    std::atomic<bool> m_isLogging{false};
    std::atomic<bool> m_addDashAforPS{true};
    LogIndexCounter m_counter;
    std::atomic<quint64> m_session{0};    // bumped by every startLogger
    std::atomic<bool> m_dataChangedPending{false};
    quint64 m_bufferCapacity = BoundedBuffer::DefaultCapacity;
    QDateTime m_startTime; // GUI thread

    // Workers. Readers are created, used and deleted on their thread only.
    QThread *m_logThread = nullptr;
    QObject *m_logAnchor = nullptr; // lives on m_logThread: context of posted work
    QThread *m_pidThread = nullptr;
    QObject *m_pidAnchor = nullptr;
    LogReader *m_logReader = nullptr;         // m_logThread only
    std::atomic<quint64> m_logReaderSession{0}; // session of m_logReader
    PidReader *m_pidReader = nullptr;         // m_pidThread only
    std::vector<LiveLine> m_batch; // the reader thread's batch, kept for its capacity
    QThreadPool *m_filterPool = nullptr;      // one thread: jobs run in call order
    QTimer *m_queueTimer = nullptr;           // GUI thread
    std::atomic<int> m_workersFinished{0};    // each worker's last act before it is joined

    // Waits of runOnMainAndWait, released by the destructor.
    bool isClosing() const;
    mutable std::mutex m_waitMutex;
    std::condition_variable m_waitDone;
    bool m_closing = false;
};
