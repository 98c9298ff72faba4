// SPDX-License-Identifier: MIT
// The live line path of LogDatasource: runs on the log reader's thread.
#include "Session/LogDatasource.h"

#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Log/LogLineParser.h"

#include <QThreadPool>

#include <algorithm>

LogEntry LogDatasource::parseLiveLine(QByteArrayView utf8Line)
{
    // The reader hands the line with its line feed; a carriage return before it stays in the text.
    if (utf8Line.endsWith('\n'))
        utf8Line.chop(1);
    thread_local LogEntryFields fields; // reused: its buffers stay allocated between lines
    if (!LogLineParser::parseFields(utf8Line, LogLineFormatStream, &fields))
        return {};
    // "app" from the process map, before the log lock is taken. A line that begins with "-" is raw
    // text and has no pid to name.
    if (!utf8Line.startsWith('-')) {
        const QByteArrayView app = m_namer.nameForUtf8(fields.view(utf8Line, LogEntry::Pid));
        if (!app.isEmpty()) // borrowed until the entry has copied it
            fields.setOwned(LogEntry::App, QByteArray::fromRawData(app.data(), app.size()));
    }
    return LogEntry::fromLine(m_counter.getIndex(), utf8Line, fields);
}

void LogDatasource::parseLiveLine(QByteArrayView utf8Line, const QString *text, FilterEvaluator *filter,
                                  LogStore::Line *out, bool ascii)
{
    // Bytes that are not UTF-8 are the absent line of logLineReceived.
    const bool utf8 = text || ascii || qf::isValidUtf8(utf8Line);
    out->entry = utf8 ? parseLiveLine(utf8Line) : LogEntry();
    if (out->entry.isNull()) {
        const QString shown = text ? *text : utf8 ? QString::fromUtf8(utf8Line) : QString();
        QF_LOG(QStringLiteral("bad data: %1").arg(shown));
    }
    // Evaluated outside every lock; a filter changed meanwhile may apply to this line either way.
    out->matched = filter && !out->entry.isNull() && filter->matches(out->entry);
}

void LogDatasource::logLineReceived(const std::optional<QString> &line)
{
    const QString text = line.value_or(QString());
    const QByteArray utf8 = text.toUtf8();
    FilterEvaluator *filter = m_filter.evaluatorForThisThread();
    LogStore::Line live;
    parseLiveLine(utf8, &text, filter, &live);
    commitLiveLines({&live, 1}, filter != nullptr);
}

void LogDatasource::logLineDataReceived(QByteArrayView line)
{
    FilterEvaluator *filter = m_filter.evaluatorForThisThread();
    LogStore::Line live;
    parseLiveLine(line, nullptr, filter, &live);
    commitLiveLines({&live, 1}, filter != nullptr);
}

void LogDatasource::logLinesDataReceived(QByteArrayView lines)
{
    // Under a flood a thousand lines arrive at once: parsed first, then taken under one log lock.
    std::vector<LogStore::Line> &batch = m_batch;
    FilterEvaluator *filter = m_filter.evaluatorForThisThread();
    forEachLine(lines, [&](QByteArrayView line, bool ascii) {
        parseLiveLine(line, nullptr, filter, &batch.emplace_back(), ascii);
    });
    commitLiveLines(batch, filter != nullptr);
    batch.clear(); // the buffers hold the entries now; the capacity stays for the next run
}

void LogDatasource::commitLiveLines(std::span<LogStore::Line> lines, bool hasFilter)
{
    if (!m_sessionHasLines.load(std::memory_order_relaxed) &&
        std::any_of(lines.begin(), lines.end(), [](const LogStore::Line &l) { return !l.entry.isNull(); }))
        m_sessionHasLines = true;
    LogStore::CommitResult result = m_store.commit(lines, hasFilter);
    if (result.announce)
        notifyDataChanged();
    // Releasing pruned blocks (a thousand cold records each) was a tenth of this thread's work under
    // a flood: the one-thread pool does it instead.
    if (!result.pruned.isEmpty())
        m_filterPool->start([pruned = std::move(result.pruned)]() mutable {
            // Cold records: fetched all at once the misses overlap, released one by one each waits.
            for (const LogEntry &entry : std::as_const(pruned))
                entry.prefetch();
            pruned.clear();
        });
    // Outside the log lock: a lookup takes the pid lock. Every line that asked counts, so one asking
    // while a lookup runs gets the follow-up lookup.
    if (result.lookupsDue > 0)
        startLookup(m_namer.requestLookups(result.lookupsDue));
}
