// SPDX-License-Identifier: MIT
// The live line path of LogDatasource: runs on the log reader's thread.
#include "Session/LogDatasource.h"

#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Log/LogLineParser.h"

#include <QThreadPool>

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Length of the first line of `lines` with its line feed (all of it when it has none), and whether
// that line is all ASCII. One pass does both: finding the line end and checking UTF-8 were two
// passes over every byte. Without SSE2 `ascii` stays false and the caller checks as before.
qsizetype firstLine(QByteArrayView lines, bool *ascii)
{
    const char *const begin = lines.data();
    const char *const end = begin + lines.size();
    *ascii = false;
#if defined(__SSE2__)
    const __m128i lineFeed = _mm_set1_epi8('\n');
    int high = 0;
    const char *p = begin;
    for (; end - p >= 16; p += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const int feeds = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, lineFeed));
        const int highs = _mm_movemask_epi8(bytes);
        if (feeds) {
            const int at = __builtin_ctz(unsigned(feeds));
            *ascii = (high | (highs & ((1 << at) - 1))) == 0;
            return p - begin + at + 1;
        }
        high |= highs;
    }
    for (; p < end; ++p) {
        high |= uchar(*p) & 0x80;
        if (*p == '\n') {
            *ascii = high == 0;
            return p - begin + 1;
        }
    }
    *ascii = high == 0;
    return lines.size();
#else
    const void *feed = std::memchr(begin, '\n', size_t(lines.size()));
    return feed ? static_cast<const char *>(feed) - begin + 1 : lines.size();
#endif
}

} // namespace

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
    while (!lines.isEmpty()) {
        bool ascii = false;
        const qsizetype length = firstLine(lines, &ascii);
        parseLiveLine(lines.first(length), nullptr, filter, &batch.emplace_back(), ascii);
        lines = lines.sliced(length);
    }
    commitLiveLines(batch, filter != nullptr);
    batch.clear(); // the buffers hold the entries now; the capacity stays for the next run
}

void LogDatasource::commitLiveLines(std::span<LogStore::Line> lines, bool hasFilter)
{
    LogStore::CommitResult result = m_store.commit(lines, hasFilter);
    if (result.announce)
        notifyDataChanged();
    // Releasing pruned blocks (a thousand cold records each) was a tenth of this thread's work under
    // a flood: the one-thread pool does it instead.
    if (!result.pruned.isEmpty())
        m_filterPool->start([pruned = std::move(result.pruned)]() mutable { pruned.clear(); });
    // Outside the log lock: a lookup takes the pid lock. Every line that asked counts, so one asking
    // while a lookup runs gets the follow-up lookup.
    if (result.lookupsDue > 0)
        startLookup(m_namer.requestLookups(result.lookupsDue));
}
