// SPDX-License-Identifier: MIT
#include "Scenes/LogDocumentController.h"

#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Log/LogDocument.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/SavedFiltersController.h"
#include "Session/LogDatasource.h"
#include "Session/ReconnectPolicy.h"

#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

namespace {

constexpr int ProgressDelayMs = 500;

// Runs `work` on a fresh thread and hands its result to `done` on the context's thread, unless the
// context is gone by then. The thread deletes itself once finished.
template <typename Result>
QThread *runInBackground(QObject *context, std::function<Result()> work, std::function<void(Result)> done)
{
    auto result = std::make_shared<Result>();
    QThread *thread = QThread::create([work = std::move(work), result] { *result = work(); });
    QObject::connect(thread, &QThread::finished, context, [result, done = std::move(done)] { done(std::move(*result)); });
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
    return thread;
}

} // namespace

LogDocumentController::LogDocumentController(MainWindow *window, LogDatasource *logDatasource,
                                             LogTableController *table, SavedFiltersController *filters,
                                             ReconnectPolicy *reconnect, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_logDatasource(logDatasource)
    , m_table(table)
    , m_filters(filters)
    , m_reconnect(reconnect)
{
    connect(window, &MainWindow::progressCancelled, this, &LogDocumentController::cancelProgress);
}

LogDocumentController::~LogDocumentController()
{
    if (m_cancelFlag)
        m_cancelFlag->store(true);
    for (const QPointer<QThread> &worker : std::as_const(m_workers))
        if (worker)
            worker->wait();
}

void LogDocumentController::saveDocument()
{
    saveFile({QStringLiteral("quillfern"), QStringLiteral("log"), QStringLiteral("txt")});
}

void LogDocumentController::saveDocumentAsText()
{
    saveFile({QStringLiteral("log"), QStringLiteral("txt"), QStringLiteral("quillfern")});
}

void LogDocumentController::saveFile(const QStringList &extensions, std::function<void()> afterSaved)
{
    QPointer<LogDocumentController> self(this);
    m_window->chooseFileToSave(tr("Save Log"), extensions, true,
                               [self, extensions, afterSaved = std::move(afterSaved)](const QString &path, bool visible) {
        if (!self)
            return;
        QF_LOG(QStringLiteral("save to:%1, visible:%2, rows:%3, allowedExt:%4")
                   .arg(path)
                   .arg(int(visible))
                   .arg(visible ? self->m_table->model()->rowCount() : qsizetype(self->m_logDatasource->logEventCount()))
                   .arg(extensions.join(QLatin1Char(','))));
        self->writeLogFile(path, visible, afterSaved);
    });
}

void LogDocumentController::showProgressLater(const QString &text, const bool &running)
{
    const quint64 generation = m_generation;
    QTimer::singleShot(ProgressDelayMs, this, [this, generation, text, &running] {
        if (generation == m_generation && running && m_window)
            m_window->showProgress(text);
    });
}

void LogDocumentController::writeLogFile(const QString &path, bool visibleOnly, std::function<void()> afterSaved)
{
    // Snapshots: the entries are shared handles, safe to read on the worker.
    QList<LogEntry> rows = visibleOnly ? QList<LogEntry>(m_table->model()->rows().cbegin(), m_table->model()->rows().cend())
                                       : m_logDatasource->getDataAll();
    ++m_generation;
    m_saving = true;
    showProgressLater(tr("Saving %1").arg(QFileInfo(path).fileName()), m_saving);
    // Only a save of the whole log keeps every line; the visible rows alone leave the others unsaved.
    QList<LogEntry> kept = visibleOnly ? QList<LogEntry>() : rows;
    auto cancelled = m_cancelFlag = std::make_shared<std::atomic<bool>>(false);
    m_workers.append(runInBackground<QString>(
        this,
        [rows = std::move(rows), path, cancelled]() -> QString {
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
                return file.errorString();
            constexpr qsizetype chunk = 20000;
            for (qsizetype i = 0; i < rows.size(); i += chunk) {
                if (cancelled->load())
                    return QStringLiteral("cancelled");
                if (file.write(LogDocument::savedText(rows.mid(i, chunk))) < 0)
                    return file.errorString();
            }
            if (!file.flush())
                return file.errorString();
            return QString();
        },
        [this, path, kept = std::move(kept), afterSaved = std::move(afterSaved)](QString error) {
            m_saving = false;
            m_window->hideProgress();
            if (!error.isEmpty()) {
                QF_LOG_ERROR(QStringLiteral("save failed: %1, %2").arg(path, error));
                m_window->showAlert(tr("The log could not be saved."), tr("%1\n\n%2").arg(path, error));
            }
            if (error.isEmpty())
                markKept(kept);
            emit fileSaved(path, error.isEmpty());
            if (error.isEmpty() && afterSaved)
                afterSaved();
        }));
}

void LogDocumentController::openLogcatFile()
{
    QPointer<LogDocumentController> self(this);
    m_window->chooseFileToOpen(tr("Open Log"),
                               {tr("Log files (*.quillfern *.log *.txt)"), tr("Filters (*.filters)"), tr("All files (*)")},
                               [self](const QString &path) {
                                   if (self)
                                       self->openAfterAsking(path);
                               });
}

void LogDocumentController::openAfterAsking(const QString &path)
{
    const qsizetype unsaved = SavedFiltersController::isFilterFile(path) ? 0 : unsavedLineCount();
    if (unsaved == 0) {
        openFile(path);
        return;
    }
    QPointer<LogDocumentController> self(this);
    m_window->askChoice(unsaved == 1 ? tr("The log holds 1 line that was not saved.")
                                     : tr("The log holds %1 lines that were not saved.").arg(qf::groupedCount(unsaved)),
                        tr("Opening %1 replaces the log. Save it first?").arg(QFileInfo(path).fileName()),
                        {tr("Save"), tr("Discard"), tr("Cancel")}, [self, path](int chosen) {
                            if (!self)
                                return;
                            if (chosen == 0)
                                self->saveFile({QStringLiteral("quillfern"), QStringLiteral("log"), QStringLiteral("txt")},
                                               [self, path] {
                                                   if (self)
                                                       self->openFile(path);
                                               });
                            else if (chosen == 1)
                                self->openFile(path);
                        });
}

qsizetype LogDocumentController::unsavedLineCount() const
{
    // The log is in idx order: the unsaved lines are at its end.
    const QList<LogEntry> entries = m_logDatasource->getDataAll();
    qsizetype count = 0;
    for (auto it = entries.crbegin(); it != entries.crend() && (!m_keptUpTo || it->idx() > *m_keptUpTo); ++it)
        if (!it->fieldEquals(LogEntry::Type, u"QF"))
            ++count;
    return count;
}

void LogDocumentController::markKept(const QList<LogEntry> &entries)
{
    // In idx order, as the log and files hold them.
    if (!entries.isEmpty() && (!m_keptUpTo || entries.back().idx() > *m_keptUpTo))
        m_keptUpTo = entries.back().idx();
}

void LogDocumentController::openFile(const QString &path)
{
    QF_LOG(QStringLiteral("file:%1").arg(path));
    if (m_filters->openIfFilterFile(path))
        return;
    if (m_leaveDevice)
        m_leaveDevice();
    if (LogDocument::kindForPath(path) == LogDocument::FileKind::DictionaryCandidate) {
        // Such documents are recognised but not loaded.
        if (const auto lines = LogDocument::dictionaryDocumentLineCount(path)) {
            QF_LOG(QStringLiteral("dictionary format:%1, lines:%2").arg(path).arg(*lines));
            return;
        }
    }
    loadFileInBackground(path);
}

void LogDocumentController::loadFileInBackground(const QString &path)
{
    // Cleared now, on this thread: the file's entries are numbered after everything numbered before.
    m_logDatasource->clearLog();
    ++m_generation;
    const quint64 generation = m_generation;
    m_loading = true;
    showProgressLater(tr("Opening %1").arg(QFileInfo(path).fileName()), m_loading);
    LogDatasource *datasource = m_logDatasource; // outlives this controller, which joins its workers
    m_workers.append(runInBackground<LogFileResult>(
        this, [datasource, path] { return datasource->readTextFileAfterClear(path); },
        [this, generation, path](LogFileResult result) {
            if (generation != m_generation)
                return; // cancelled or superseded
            m_loading = false;
            m_window->hideProgress();
            if (!result.ok) {
                m_window->showAlert(tr("The file could not be opened."), tr("%1\n\n%2").arg(path, result.errorString));
                emit fileOpened(path, false);
                return;
            }
            setFileContents(result.entries, path);
            emit fileOpened(path, true);
        }));
}

void LogDocumentController::cancelProgress()
{
    ++m_generation;
    m_loading = false;
    if (m_cancelFlag)
        m_cancelFlag->store(true);
    m_window->hideProgress();
}

void LogDocumentController::setFileContents(const QList<LogEntry> &entries, const QString &path)
{
    m_reconnect->forgetLastDevice();
    m_filters->setPredicate(Filter());
    m_window->filterList()->selectRow(0);
    m_logDatasource->setLogDataFromFile(entries);
    markKept(entries); // the file holds them
    m_window->setWindowTitle(path);
    m_table->changeScrollToBottom(true);
}
