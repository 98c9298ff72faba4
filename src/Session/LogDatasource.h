// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbError.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "Filters/Filter.h"
#include "Log/BoundedBuffer.h"
#include "Log/LogDocument.h"
#include "Log/LogEntry.h"
#include "Session/CurrentFilter.h"
#include "Session/LogStore.h"
#include "Session/ProcessNamer.h"
#include "Session/SessionReaders.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class AdbSocketThread;
class Clock;
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
// announcements. It wires the parts together: LogStore keeps the log, ProcessNamer names processes,
// SessionReaders keeps the readers, each on an AdbSocketThread.
//
// Threads:
// - The object lives on the GUI thread; every public method but the reader callbacks, logMessage,
//   appendRow, getIndex and the read accessors is to be called there.
// - The log reader and each process-list lookup run on an AdbSocketThread of their own: their
//   callbacks (the delegate methods below) run there.
// - Filtering the whole log and loading a file run on a one-thread pool, in call order.
//
// Locks: the log lock lives in LogStore (both buffers, the entries waiting for a name, the duplicate
// state, the device serial, the update throttle); the pid lock lives in ProcessNamer's map. Each is
// taken only inside its class's methods, and ProcessNamer calls the store only between its own
// uses of the pid lock, so the two are never held together. Nothing waits for another thread while
// holding either. Leaf mutexes guard the filter handle and (in SessionReaders) the reader slots.
class LogDatasource : public QObject, public LogReaderDelegate, public PidReaderDelegate
{
    Q_OBJECT

public:
    // The change notification: logDataUpdated() is this notification (the table listens to it).
    static constexpr const char *VXB_ON_LOG_DATA_UPDATED = "VXB_ON_LOG_DATA_UPDATED";

    // Texts of the alert for a filter that cannot be evaluated (see filterCorrupt()).
    static constexpr const char *FilterCorruptTitle = "Filter is corrupt";
    static constexpr const char *FilterCorruptButton = "OK";

    // Seams for tests: when set, these replace the creation and stopping of the real readers.
    struct ReaderHooks
    {
        std::function<void(const QString &deviceId)> startLogReader;
        std::function<void()> stopLogReader;
        std::function<void(bool addDashA, const QString &deviceId)> startPidLookup;
    };

    // `clock` (not owned, outlives the datasource) times the update throttle; null means the system
    // clock. `bufferCapacity` bounds the full log of a live session.
    explicit LogDatasource(const Clock *clock = nullptr, quint64 bufferCapacity = BoundedBuffer::DefaultCapacity,
                           QObject *parent = nullptr);
    ~LogDatasource() override; // stops the session, ends the readers and the filter pool

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
    // evaluated is dropped and filterCorrupt() is emitted. A newer call ends a pass still running.
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

    // While the controller retries a device that is away, a stream that ends without a line writes its
    // "Disconnected" row to the diagnostic log only.
    void setQuietRetry(bool quiet) { m_quietRetry = quiet; }
    // The current (or last) session has had a device line: the device is there.
    bool sessionHasLines() const { return m_sessionHasLines.load(); }

    // Trailing announcement, run by the 0.5 s timer of a live session; public so tests drive it.
    void onQueueCheckTimerTick();

    // State for diagnostics and tests (each read under its lock).
    quint64 bufferCapacity() const { return m_bufferCapacity; }
    quint64 logDataCapacity() const { return m_store.capacity(); }
    bool checkDates() const { return m_store.checkDates(); }
    QString lastDateReceived() const { return m_store.lastDateReceived(); }
    quint64 numDuplicateRows() const { return m_store.numDuplicateRows(); }
    bool addDashAforPS() const { return m_namer.addDashA(); }
    bool pidLookupRunning() const { return m_namer.lookupRunning(); }
    QString appNameForPid(const QString &pid) const { return m_namer.nameFor(pid); }
    qsizetype unknownPidCount() const { return m_store.waitingPidCount(); }

    // --- LogReaderDelegate: the log reader's thread ---
    void logLineReceived(const std::optional<QString> &line) override;
    // The reader's byte form: parsed straight from the UTF-8, no QString in between.
    void logLineDataReceived(QByteArrayView line) override;
    // Lines that arrived together: parsed, then taken under the log lock in one go.
    void logLinesDataReceived(QByteArrayView lines) override;
    void logReaderStopped() override;
    void logReaderStoppedWithError(const AdbError &error) override;
    void adbNotRunningError(const AdbError &error) override;
    void adbDeviceNotFound(const AdbError &error) override;

    // --- PidReaderDelegate: the lookup's thread ---
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
    // Readers: the one place each is created; SessionReaders ends them.
    std::unique_ptr<AdbSocketThread> createLogReader(const QString &deviceId);
    std::unique_ptr<AdbSocketThread> createPidReader(bool addDashA, const QString &deviceId);
    void stopLogReader();
    void startLookup(std::optional<bool> addDashA); // with the "-A" argument, when one is to start
    void loadPID();

    void filterJob(const Filter &filter, quint64 request);
    // The live line path (LogDatasourceLive.cpp): parse outside every lock, then one commit.
    LogEntry parseLiveLine(QByteArrayView utf8Line);
    // `text`: the line as logLineReceived had it, for the diagnostic of a bad line. `ascii`: the caller
    // saw only ASCII bytes, so the UTF-8 check is skipped.
    void parseLiveLine(QByteArrayView utf8Line, const QString *text, FilterEvaluator *filter, LogStore::Line *out,
                       bool ascii = false);
    void commitLiveLines(std::span<LogStore::Line> lines, bool hasFilter);

    // GUI-thread announcements; each asserts the thread.
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
    // when the datasource is being destroyed, so a reader never blocks the destructor.
    void runOnMainAndWait(std::function<void()> work);
    void abortSession(void (LogDatasource::*notify)()); // the process-list aborts
    void dropDeviceAndLookup(); // after an ADB failure: forget the serial and the process reader

    const Clock *m_clock;
    LogDatasourceDelegate *m_delegate = nullptr; // GUI thread only
    ReaderHooks m_hooks;                          // fixed before readers use it
    mutable QMutex m_settingsMutex;               // a leaf: readers are made on the reader threads too
    AdbConnectionSettings m_connectionSettings;
    AdbConnectionSettings connectionSettings() const;

    LogStore m_store;    // the log lock
    ProcessNamer m_namer; // the pid lock

    CurrentFilter m_filter; // read by every line without the log lock

    std::atomic<bool> m_isLogging{false};
    LogIndexCounter m_counter;
    std::atomic<quint64> m_session{0};          // bumped by every startLogger
    std::atomic<quint64> m_logReaderSession{0}; // session of the current log reader
    std::atomic<quint64> m_stopReportedSession{0}; // the last session whose stream end was handled
    std::atomic<bool> m_quietRetry{false};
    std::atomic<bool> m_sessionHasLines{false}; // reset by startLogger, set by the reader's thread
    std::atomic<bool> m_dataChangedPending{false};
    std::atomic<quint64> m_filterRequests{0}; // bumped by every setLogDataFilter; a job runs while it is its own
    const quint64 m_bufferCapacity;
    QDateTime m_startTime; // GUI thread

    SessionReaders m_readers;
    std::vector<LogStore::Line> m_batch; // the log reader's run, kept for its capacity
    QThreadPool *m_filterPool = nullptr; // one thread: jobs run in call order
    QTimer *m_queueTimer = nullptr;      // GUI thread

    // Waits of runOnMainAndWait, released by the destructor.
    mutable std::mutex m_waitMutex;
    std::condition_variable m_waitDone;
    bool m_closing = false;
};
