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
    void saveFile(const QStringList &extensions);
    // Writes the rows now (saveFile calls it once the user has chosen).
    void writeLogFile(const QString &path, bool visibleOnly);
    void openLogcatFile();
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
    void showProgressLater(const QString &text, const bool &running);

    QPointer<MainWindow> m_window;
    LogDatasource *m_logDatasource;
    LogTableController *m_table;
    SavedFiltersController *m_filters;
    ReconnectPolicy *m_reconnect;
    std::function<void()> m_leaveDevice;

    quint64 m_generation = 0; // a newer open or a cancel makes older loads' results void
    bool m_loading = false;
    bool m_saving = false;
    std::shared_ptr<std::atomic<bool>> m_cancelFlag; // of the running save
    QList<QPointer<QThread>> m_workers;              // joined on destruction
};
