// SPDX-License-Identifier: MIT
// The log documents of QuillfernAppDelegate: Save, Save as Text and Open. Reading and writing run on a
// worker thread; the window shows progress when they take longer than half a second.
#include "Scenes/QuillfernAppDelegate.h"

#include "Helpers/Logger.h"
#include "Log/LogDocument.h"
#include "Session/ReconnectPolicy.h"
#include "Scenes/FilterListView.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/SavedFiltersController.h"

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

void QuillfernAppDelegate::saveDocument()
{
    saveFile({QStringLiteral("quillfern"), QStringLiteral("log"), QStringLiteral("txt")});
}

void QuillfernAppDelegate::saveDocumentAsText()
{
    saveFile({QStringLiteral("log"), QStringLiteral("txt"), QStringLiteral("quillfern")});
}

void QuillfernAppDelegate::saveFile(const QStringList &extensions)
{
    QPointer<QuillfernAppDelegate> self(this);
    m_window->chooseFileToSave(tr("Save Log"), extensions, true, [self, extensions](const QString &path, bool visible) {
        if (!self)
            return;
        QF_LOG(QStringLiteral("save to:%1, visible:%2, rows:%3, allowedExt:%4")
                   .arg(path)
                   .arg(int(visible))
                   .arg(visible ? self->m_table->model()->rowCount() : qsizetype(self->m_logDatasource->logEventCount()))
                   .arg(extensions.join(QLatin1Char(','))));
        self->writeLogFile(path, visible);
    });
}

bool QuillfernAppDelegate::writeLogFile(const QString &path, bool visibleOnly)
{
    // Snapshots: the entries are shared handles, safe to read on the worker.
    QList<LogEntry> rows = visibleOnly ? QList<LogEntry>(m_table->model()->rows().cbegin(), m_table->model()->rows().cend())
                                       : m_logDatasource->getDataAll();
    const quint64 generation = ++m_loadGeneration;
    QTimer::singleShot(ProgressDelayMs, this, [this, generation, path] {
        if (generation == m_loadGeneration && m_saving)
            m_window->showProgress(tr("Saving %1").arg(QFileInfo(path).fileName()));
    });
    m_saving = true;
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
        [this, path](QString error) {
            m_saving = false;
            m_window->hideProgress();
            if (!error.isEmpty()) {
                QF_LOG_ERROR(QStringLiteral("save failed: %1, %2").arg(path, error));
                m_window->showAlert(tr("The log could not be saved."), tr("%1\n\n%2").arg(path, error));
            }
            emit fileSaved(path, error.isEmpty());
        }));
    return true;
}

void QuillfernAppDelegate::openLogcatFile()
{
    QPointer<QuillfernAppDelegate> self(this);
    m_window->chooseFileToOpen(tr("Open Log"),
                               {tr("Log files (*.quillfern *.log *.txt)"), tr("Filters (*.filters)"), tr("All files (*)")},
                               [self](const QString &path) {
                                   if (self)
                                       self->openFile(path);
                               });
}

void QuillfernAppDelegate::loadFileInBackground(const QString &path)
{
    const quint64 generation = ++m_loadGeneration;
    m_loading = true;
    QTimer::singleShot(ProgressDelayMs, this, [this, generation, path] {
        if (generation == m_loadGeneration && m_loading)
            m_window->showProgress(tr("Opening %1").arg(QFileInfo(path).fileName()));
    });
    m_workers.append(runInBackground<LogFileResult>(
        this,
        [path] {
            LogIndexCounter counter;
            return LogDocument::readTextFile(path, counter);
        },
        [this, generation, path](LogFileResult result) {
            if (generation != m_loadGeneration)
                return; // cancelled or superseded
            m_loading = false;
            m_window->hideProgress();
            if (!result.ok) {
                QF_LOG_ERROR(QStringLiteral("unable to open: %1, %2").arg(path, result.errorString));
                m_window->showAlert(tr("The file could not be opened."), tr("%1\n\n%2").arg(path, result.errorString));
                emit fileOpened(path, false);
                return;
            }
            QF_LOG(QStringLiteral("reading file:%1, lines:%2, format:%3, encoding:%4")
                       .arg(path)
                       .arg(result.lineCount)
                       .arg(result.format)
                       .arg(result.encoding));
            setFileContents(result.entries, path);
            emit fileOpened(path, true);
        }));
}

void QuillfernAppDelegate::cancelProgress()
{
    ++m_loadGeneration;
    m_loading = false;
    if (m_cancelFlag)
        m_cancelFlag->store(true);
    m_window->hideProgress();
}

void QuillfernAppDelegate::setFileContents(const QList<LogEntry> &entries, const QString &path)
{
    m_reconnect->forgetLastDevice();
    m_filters->setPredicate(Filter());
    m_window->filterList()->selectRow(0);
    m_logDatasource->setLogDataFromFile(entries);
    m_window->setWindowTitle(path);
    m_table->changeScrollToBottom(true);
}
