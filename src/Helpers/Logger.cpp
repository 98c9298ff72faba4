// SPDX-License-Identifier: MIT
#include "Helpers/Logger.h"

#include "Helpers/LogFileSink.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringDecoder>

#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/os.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <vector>

namespace {

// Lines the logging thread may hold before callers block. Nothing is dropped: an error line waits for
// its own turn, so a dropped line would also break that wait.
constexpr size_t QueueCapacity = 8192;
// An error line waits at most this long for the logging thread (which only stalls if the disk does).
constexpr auto ErrorWriteTimeout = std::chrono::seconds(5);

// Marks a flush request in the queue; real lines use debug and err only.
constexpr auto BarrierLevel = spdlog::level::critical;

bool quietConsole()
{
    const QByteArray quiet = qgetenv("QUILLFERN_LOG_QUIET");
    return !quiet.isEmpty() && quiet != "0";
}

QString textOf(const char *text)
{
    return text ? QString::fromUtf8(text) : QString();
}

LogMessage messageFrom(const spdlog::details::log_msg &msg)
{
    LogMessage message;
    message.flag = msg.level >= spdlog::level::err ? 1 : 8;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(msg.time.time_since_epoch()).count();
    message.timestamp = QDateTime::fromMSecsSinceEpoch(ms);
    message.message = QString::fromUtf8(msg.payload.data(), qsizetype(msg.payload.size()));
    message.fileName = Logger::fileNameOf(msg.source.filename);
    message.function = textOf(msg.source.funcname);
    message.threadID = QString::number(msg.thread_id);
    return message;
}

// The formatter of both sinks: one line in the diagnostic format, coloured as a whole.
class LineFormatter final : public spdlog::formatter
{
public:
    explicit LineFormatter(QString mainThreadId) : m_mainThreadId(std::move(mainThreadId)) {}

    void format(const spdlog::details::log_msg &msg, spdlog::memory_buf_t &dest) override
    {
        const QByteArray line = Logger::formatLogMessage(messageFrom(msg), m_mainThreadId).toUtf8();
        msg.color_range_start = dest.size();
        dest.append(line.constData(), line.constData() + line.size());
        msg.color_range_end = dest.size();
        dest.push_back('\n');
    }

    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<LineFormatter>(m_mainThreadId); }

private:
    const QString m_mainThreadId;
};

// The async logger's only sink: hands lines to the file and console sinks, and after each error line or
// flush request flushes them and counts it, so that a waiting caller knows its line is out.
class DispatchSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    explicit DispatchSink(std::vector<spdlog::sink_ptr> sinks) : m_sinks(std::move(sinks)) {}

    bool waitFor(quint64 ticket)
    {
        std::unique_lock lock(m_doneMutex);
        return m_doneChanged.wait_for(lock, ErrorWriteTimeout, [&] { return m_done >= ticket; });
    }

protected:
    void sink_it_(const spdlog::details::log_msg &msg) override
    {
        if (msg.level != BarrierLevel) {
            for (const auto &target : m_sinks) {
                // A failing sink (disk full) must not keep the line from being counted below, or the
                // caller of an error line would wait for nothing.
                try {
                    target->log(msg);
                } catch (const spdlog::spdlog_ex &error) {
                    std::fprintf(stderr, "Quillfern: diagnostic log write failed: %s\n", error.what());
                }
            }
        }
        if (msg.level >= spdlog::level::err) {
            flush_();
            {
                std::lock_guard lock(m_doneMutex);
                ++m_done;
            }
            m_doneChanged.notify_all();
        }
    }

    void flush_() override
    {
        for (const auto &target : m_sinks) {
            try {
                target->flush();
            } catch (const spdlog::spdlog_ex &error) {
                std::fprintf(stderr, "Quillfern: diagnostic log flush failed: %s\n", error.what());
            }
        }
    }

private:
    const std::vector<spdlog::sink_ptr> m_sinks;
    std::mutex m_doneMutex;
    std::condition_variable m_doneChanged;
    quint64 m_done = 0;
};

} // namespace

struct Logger::Backend
{
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<DispatchSink> dispatch;
    std::shared_ptr<spdlog::async_logger> logger;
    QString filePath;

    std::mutex ticketMutex; // keeps ticket order equal to queue order
    quint64 issued = 0;

    // Queues the line (or a flush request) and waits until the logging thread has written it.
    void writeAndWait(const spdlog::source_loc &where, spdlog::level::level_enum level, spdlog::string_view_t text)
    {
        quint64 ticket = 0;
        {
            std::lock_guard lock(ticketMutex);
            logger->log(where, level, text);
            ticket = ++issued;
        }
        if (!dispatch->waitFor(ticket))
            std::fputs("Quillfern: the diagnostic log did not answer in time\n", stderr);
    }

    ~Backend()
    {
        if (!logger)
            return;
        writeAndWait({}, BarrierLevel, {});
        // Join the logging thread first (it drains what is queued), so the logger's last reference is
        // dropped here and not by that thread.
        pool.reset();
        logger.reset();
    }
};

Logger &Logger::getInstance()
{
    static Logger instance;
    return instance;
}

Logger::~Logger()
{
    shutdown();
}

namespace {

QString defaultLogFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation) + QStringLiteral("/logs");
}

QString logFileIn(const QString &folder)
{
    return folder + QStringLiteral("/Quillfern.log");
}

} // namespace

QString Logger::defaultLogFilePath()
{
    return logFileIn(defaultLogFolder());
}

void Logger::registerLogger(const QString &folder)
{
    std::unique_lock lock(m_mutex);
    if (m_backend)
        return;

    const QString dir = folder.isEmpty() ? defaultLogFolder() : folder;
    QDir().mkpath(dir);
    const QString path = logFileIn(dir);
    m_mainThreadId = currentThreadId();

    std::vector<spdlog::sink_ptr> sinks;
    try {
        auto file = std::make_shared<LogFileSink>(path, MaxFileSize, RollingIntervalMs);
        file->set_formatter(std::make_unique<LineFormatter>(m_mainThreadId));
        sinks.push_back(std::move(file));
    } catch (const spdlog::spdlog_ex &error) {
        // Without a file the log still reaches the console.
        std::fprintf(stderr, "Quillfern: cannot open the diagnostic log %s: %s\n", qPrintable(path), error.what());
    }
    if (!quietConsole()) {
        auto console = std::make_shared<spdlog::sinks::stderr_color_sink_mt>(spdlog::color_mode::automatic);
        console->set_formatter(std::make_unique<LineFormatter>(m_mainThreadId));
        sinks.push_back(std::move(console));
    }

    auto backend = std::make_shared<Backend>();
    backend->filePath = path;
    backend->dispatch = std::make_shared<DispatchSink>(std::move(sinks));
    backend->pool = std::make_shared<spdlog::details::thread_pool>(QueueCapacity, 1);
    backend->logger = std::make_shared<spdlog::async_logger>("quillfern", backend->dispatch, backend->pool,
                                                             spdlog::async_overflow_policy::block);
    backend->logger->set_level(spdlog::level::debug);
    m_backend = std::move(backend);
    lock.unlock();

    QF_LOG(QStringLiteral("logging to file: %1").arg(path));
}

bool Logger::isRegistered() const
{
    std::lock_guard lock(m_mutex);
    return m_backend != nullptr;
}

QString Logger::logFilePath() const
{
    std::lock_guard lock(m_mutex);
    return m_backend ? m_backend->filePath : QString();
}

QString Logger::mainThreadId() const
{
    std::lock_guard lock(m_mutex);
    return m_mainThreadId;
}

void Logger::setObserver(Observer observer)
{
    auto shared = observer ? std::make_shared<const Observer>(std::move(observer)) : nullptr;
    std::lock_guard lock(m_mutex);
    m_observer = std::move(shared);
}

void Logger::write(LogLevel level, const char *file, const char *function, int line, const QString &message)
{
    std::shared_ptr<Backend> backend;
    std::shared_ptr<const Observer> observer;
    {
        std::lock_guard lock(m_mutex);
        backend = m_backend;
        observer = m_observer;
    }
    if (observer)
        (*observer)(level, message);

    if (!backend) {
        if (level == LogLevel::Error && !quietConsole()) {
            LogMessage unregistered;
            unregistered.flag = 1;
            unregistered.timestamp = QDateTime::currentDateTime();
            unregistered.message = message;
            unregistered.fileName = fileNameOf(file);
            unregistered.function = textOf(function);
            unregistered.threadID = currentThreadId();
            std::fprintf(stderr, "%s\n", formatLogMessage(unregistered, QString()).toUtf8().constData());
        }
        return;
    }

    const QByteArray text = message.toUtf8();
    const spdlog::source_loc where{file, line, function};
    const spdlog::string_view_t payload(text.constData(), size_t(text.size()));
    if (level == LogLevel::Debug)
        backend->logger->log(where, spdlog::level::debug, payload);
    else
        backend->writeAndWait(where, spdlog::level::err, payload);
}

void Logger::flush()
{
    std::shared_ptr<Backend> backend;
    {
        std::lock_guard lock(m_mutex);
        backend = m_backend;
    }
    if (backend)
        backend->writeAndWait({}, BarrierLevel, {});
}

void Logger::shutdown()
{
    std::shared_ptr<Backend> backend;
    {
        std::lock_guard lock(m_mutex);
        backend = std::move(m_backend);
        m_mainThreadId.clear();
    }
    // The backend's destructor drains the queue (here, or in a writer still holding it).
}

QString Logger::logToString()
{
    if (!isRegistered())
        registerLogger();
    flush();
    return readLogText(logFilePath());
}

QString Logger::readLogText(const QString &path)
{
    if (path.isEmpty() || !QFileInfo::exists(path))
        return QStringLiteral("no log found!");
    QFile file(path);
    QString text;
    bool ok = file.open(QIODevice::ReadOnly);
    if (ok) {
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        text = decoder(file.readAll());
        ok = !decoder.hasError() && file.error() == QFileDevice::NoError;
    }
    if (!ok) {
        const QString error = QStringLiteral("ERROR reading file: %1").arg(path);
        QF_LOG_ERROR(error);
        return error;
    }
    if (text.size() > DisplayLimit)
        return QStringLiteral("<truncated>\n") + text.right(DisplayLimit);
    return text;
}

QString Logger::formatLogMessage(const LogMessage &message) const
{
    return formatLogMessage(message, mainThreadId());
}

QString Logger::formatLogMessage(const LogMessage &message, const QString &mainThreadId)
{
    QString level;
    switch (message.levelMask) {
    case 1:
        level = QStringLiteral("E");
        break;
    case 3:
        level = QStringLiteral("W");
        break;
    case 7:
        level = QStringLiteral("I");
        break;
    case 15:
        level = QStringLiteral("D");
        break;
    default:
        level = QStringLiteral("V");
        break;
    }
    const bool onMainThread = !mainThreadId.isEmpty() && message.threadID == mainThreadId;
    return QStringLiteral("%1 %2 [%3] %4:%5: %6")
        .arg(stringFromDate(message.timestamp), level, onMainThread ? QStringLiteral("UI") : message.threadID,
             message.fileName, extractMethodName(message.function), message.message);
}

QString Logger::extractMethodName(const QString &function)
{
    QStringView name(function);
    const qsizetype space = name.indexOf(u' ');
    if (space >= 0 && space + 1 < name.size())
        name = name.sliced(space + 1);
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name[i];
        if (c == u' ' || c == u':' || c == u']')
            return name.first(i).toString();
    }
    return name.toString();
}

QString Logger::stringFromDate(const QDateTime &date)
{
    // QDateTime formatting is thread-safe, so no per-thread formatter is needed.
    return date.toLocalTime().toString(QStringLiteral("MM-dd HH:mm:ss"));
}

QString Logger::fileNameOf(const char *path)
{
    const QString fileName = QFileInfo(textOf(path)).fileName();
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.first(dot) : fileName;
}

QString Logger::currentThreadId()
{
    return QString::number(spdlog::details::os::thread_id());
}
