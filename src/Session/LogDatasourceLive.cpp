// SPDX-License-Identifier: MIT
// The live line path of LogDatasource: runs on the log reader's thread.
#include "Session/LogDatasource.h"

#include "Helpers/Clock.h"
#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Log/LogLineParser.h"

LogEntry LogDatasource::parseLiveLine(QByteArrayView utf8Line)
{
    // The reader hands the line with its line feed; a carriage return before it stays in the text.
    if (utf8Line.endsWith('\n'))
        utf8Line.chop(1);
    thread_local LogEntryFields fields; // reused: its buffers stay allocated between lines
    if (!LogLineParser::parseFields(utf8Line, LogLineFormatStream, &fields))
        return {};
    // "app" from the process map: the pid lock (if taken at all) before the log lock, never with it.
    // A line that begins with "-" is raw text and has no pid to name.
    if (!utf8Line.startsWith('-')) {
        const QByteArrayView app = m_names.nameForUtf8(fields.view(utf8Line, LogEntry::Pid));
        if (!app.isEmpty()) // borrowed until the entry has copied it
            fields.setOwned(LogEntry::App, QByteArray::fromRawData(app.data(), app.size()));
    }
    return LogEntry::fromLine(m_counter.getIndex(), utf8Line, fields);
}

void LogDatasource::parseLiveLine(QByteArrayView utf8Line, FilterEvaluator *filter, LiveLine *out)
{
    out->raw = utf8Line;
    // Bytes that are not UTF-8 are the absent line of logLineReceived.
    out->utf8 = qf::isValidUtf8(utf8Line);
    out->entry = out->utf8 ? parseLiveLine(utf8Line) : LogEntry();
    // Evaluated outside every lock; a filter changed meanwhile may apply to this line either way.
    out->matched = filter && !out->entry.isNull() && filter->matches(out->entry);
}

void LogDatasource::logLineReceived(const std::optional<QString> &line)
{
    const QString text = line.value_or(QString());
    const QByteArray utf8 = text.toUtf8();
    FilterEvaluator *filter = lineFilter();
    LiveLine live;
    parseLiveLine(utf8, filter, &live);
    commitLiveLines(&live, 1, filter != nullptr, &text);
}

void LogDatasource::logLineDataReceived(QByteArrayView line)
{
    FilterEvaluator *filter = lineFilter();
    LiveLine live;
    parseLiveLine(line, filter, &live);
    commitLiveLines(&live, 1, filter != nullptr, nullptr);
}

void LogDatasource::logLinesDataReceived(QByteArrayView lines)
{
    // Under a flood a thousand lines arrive at once: parsed first, then taken under one log lock.
    std::vector<LiveLine> &batch = m_batch;
    FilterEvaluator *filter = lineFilter();
    forEachLine(lines, [&](QByteArrayView line) { parseLiveLine(line, filter, &batch.emplace_back()); });
    commitLiveLines(batch.data(), batch.size(), filter != nullptr, nullptr);
    batch.clear(); // the buffers hold the entries now; the capacity stays for the next batch
}

void LogDatasource::commitLiveLines(LiveLine *lines, size_t count, bool hasFilter, const QString *text)
{
    for (size_t i = 0; i < count; ++i) {
        if (!lines[i].entry.isNull())
            continue;
        const QString shown = text ? *text : lines[i].utf8 ? QString::fromUtf8(lines[i].raw) : QString();
        QF_LOG(QStringLiteral("bad data: %1").arg(shown));
    }
    // The clock only for what needs it: a nameless pid's first sighting and the throttle. Most
    // batches under a filter need neither.
    std::optional<double> nowCache;
    const auto now = [&] {
        if (!nowCache)
            nowCache = m_clock->nowSeconds();
        return *nowCache;
    };
    bool lookupDue = false;
    bool announce = false;
    // The newest line with a time becomes lastDateReceived if it is kept: after the first kept line
    // nothing more is dropped, so no other line can be the newest kept one.
    size_t newestTimed = count;
    for (size_t i = count; i-- > 0;) {
        if (!lines[i].entry.isNull() && !lines[i].entry.fieldIsEmpty(LogEntry::Time)) {
            newestTimed = i;
            break;
        }
    }
    withLog([&](LogState &s) {
        bool changed = false;
        bool newestKept = false;
        for (size_t i = 0; i < count; ++i) {
            LiveLine &line = lines[i];
            if (line.entry.isNull())
                continue;
            if (s.checkDates && !line.entry.fieldIsEmpty(LogEntry::Time)) {
                // logcat replays its whole buffer on every connection: drop what was shown already.
                const QString time = line.entry.value(LogEntry::Time);
                const QString last = s.lastTimedEntry.value(LogEntry::Time);
                if (!last.isEmpty() && time < last) {
                    ++s.numDuplicateRows;
                    continue;
                }
                s.checkDates = false;
                if (s.numDuplicateRows != 0)
                    QF_LOG(QStringLiteral("removed %1 duplicate rows. lastDate:%2").arg(s.numDuplicateRows).arg(last));
            }
            if (line.entry.fieldIsEmpty(LogEntry::App)) {
                const QString pid = line.entry.value(LogEntry::Pid);
                auto it = s.unknownLogs.find(pid);
                if (it == s.unknownLogs.end())
                    it = s.unknownLogs.insert(pid, UnknownPid{now(), {}});
                it->entries.append(line.entry);
                if (it->entries.size() >= 2) // the second nameless line of a pid asks
                    lookupDue = true;
            }
            if (line.matched)
                s.viewData.addObject(line.entry);
            bool pruned = false;
            if (i == newestTimed) {
                newestKept = true;
                pruned = s.logData.addObject(line.entry);
            } else {
                pruned = s.logData.addObject(std::move(line.entry)); // the run's reference, no count
            }
            ++s.appendedTotal;
            // A non-matching line changes nothing shown, unless it pruned the full log (every row moves).
            if (!hasFilter || line.matched || pruned)
                changed = true;
        }
        // Keeping the handle spares a string per line.
        if (newestKept)
            s.lastTimedEntry = lines[newestTimed].entry;
        if (changed)
            announce = s.throttle.noteChange(now());
    });
    if (announce)
        notifyDataChanged();
    if (lookupDue)
        loadPID(); // outside the log lock: it takes the pid lock
}
