// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class LogDatasource;
class LogTableController;
class MainWindow;
class QThread;
class ReconnectPolicy;
class SavedFiltersController;

// The log documents of the main window: Save, Save as Text and Open. Reading and writing run on
// worker threads; the window shows progress when they take longer than half a second, and its
// Cancel button ends them. A file's entries come through the datasource, which clears the log
// first and numbers them after everything it numbered before.
// GUI thread only; destroying it joins its workers.
class LogDocumentController : public QObject
{
    Q_OBJECT

public:
    LogDocumentController(MainWindow *window, LogDatasource *logDatasource, LogTableController *table,
                          SavedFiltersController *filters, ReconnectPolicy *reconnect, QObject *parent = nullptr);
    ~LogDocumentController() override;

    // Run before a log file replaces the device's log: the controller's own stop, so retries end too,
    // and the window is marked as showing a file.
    void setLeaveDevice(std::function<void()> leaveDevice) { m_leaveDevice = std::move(leaveDevice); }

    void saveDocument();
    void saveDocumentAsText();
    // `afterSaved` runs once the file was written without error (not when the panel is cancelled).
    void saveFile(const QStringList &extensions, std::function<void()> afterSaved = {});
    // Writes the rows now (saveFile calls it once the user has chosen).
    void writeLogFile(const QString &path, bool visibleOnly, std::function<void()> afterSaved = {});
    // File > Open. When the live log holds lines that no save or file holds, it asks first whether to
    // save them, discard them or keep everything; a filters file never replaces the log, so it never asks.
    void openLogcatFile();
    // Lines of the log, other than the program's own messages, newer than the last save of the whole
    // log or the last file opened.
    qsizetype unsavedLineCount() const;
    void openFile(const QString &path);
    void setFileContents(const QList<LogEntry> &entries, const QString &path);
    // The Cancel button of a long open or save.
    void cancelProgress();

signals:
    // A file finished loading into the window (also after a failed read).
    void fileOpened(const QString &path, bool ok);
    void fileSaved(const QString &path, bool ok);

private:
    void loadFileInBackground(const QString &path);
    void openAfterAsking(const QString &path);
    void markKept(const QList<LogEntry> &entries);
    void showProgressLater(const QString &text, const bool &running);

    QPointer<MainWindow> m_window;
    LogDatasource *m_logDatasource;
    LogTableController *m_table;
    SavedFiltersController *m_filters;
    ReconnectPolicy *m_reconnect;
    std::function<void()> m_leaveDevice;

    std::optional<quint64> m_keptUpTo; // idx of the newest entry a save or a file holds
    quint64 m_generation = 0; // a newer open or a cancel makes older loads' results void
    bool m_loading = false;
    bool m_saving = false;
    std::shared_ptr<std::atomic<bool>> m_cancelFlag; // of the running save
    QList<QPointer<QThread>> m_workers;              // joined on destruction
};
