// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QByteArrayView>
#include <QDateTime>
#include <QList>
#include <QStringList>

#include <atomic>
#include <functional>

// The line shapes a log can have; the numbers appear in diagnostic lines and are fixed.
enum LogLineFormat : int {
    LogLineFormatUnknown = 0,
    LogLineFormatStream = 1,        // live threadtime; "app" from the process map
    LogLineFormatThreadTimeApp = 2, // saved text: MM-dd HH:mm:ss.SSS app(pid) tid L tag: text
    LogLineFormatThreadTime = 3,    // threadtime read from a file
    LogLineFormatTimeColon = 4,     // MM-dd HH:mm:ss.SSS: L/tag(pid): text, app between "**" in the tag
    LogLineFormatBrief = 5,         // L/tag(pid): text
    LogLineFormatProcess = 6,       // L(pid) text
    LogLineFormatRaw = 7,           // anything else, and every line that begins with "-"
    LogLineFormatTag = 8,           // L/tag: text
    LogLineFormatTime = 9,          // MM-dd HH:mm:ss.SSS L/tag(pid): text
    LogLineFormatLong = 10,         // [ MM-dd HH:mm:ss.SSS pid:tid L/tag ] + message line + blank line
};

// The datasource's running "idx" source: getIndex returns the value, then adds 1. Thread-safe.
class LogIndexCounter
{
public:
    quint64 getIndex() { return m_next.fetch_add(1, std::memory_order_relaxed); }
    // Takes n consecutive numbers at once and returns the first.
    quint64 reserve(quint64 n) { return m_next.fetch_add(n, std::memory_order_relaxed); }
    quint64 peek() const { return m_next.load(std::memory_order_relaxed); }

private:
    std::atomic<quint64> m_next{0};
};

// Turns log lines into entries. Pure functions: no state besides the counter the caller passes.
class LogLineParser
{
public:
    // Application name for a pid (format 1 only); the caller guards its process map itself.
    using AppLookup = std::function<QString(const QString &pid)>;

    // One line (without its line feed; a carriage return stays in the text) into an entry, or a null
    // entry when the line yields none. "idx" is taken from the counter only for a line that yields one.
    static LogEntry parseThreadTimeLine(QByteArrayView utf8Line, int format, LogIndexCounter &counter,
                                        const AppLookup &lookup = {});
    static LogEntry parseThreadTimeLine(QStringView line, int format, LogIndexCounter &counter,
                                        const AppLookup &lookup = {});
    // The parse without making an entry: false when the line yields none. Slices refer to utf8Line.
    static bool parseFields(QByteArrayView utf8Line, int format, LogEntryFields *fields,
                            const AppLookup &lookup = {});

    // Decides the format from the first lines (agreement counting, at most 30 classified lines).
    static LogLineFormat determineLogType(const QStringList &lines);
    static LogLineFormat determineLogType(const QList<QByteArrayView> &utf8Lines);
    // Sequential form for a file: nextLine sets the next line and returns true, or false at the end.
    using NextLine = std::function<bool(QByteArrayView *)>;
    static LogLineFormat determineLogType(const NextLine &nextLine);
    // The class of one line on its own (rule 2 of detection); the line must have 2 or more characters.
    static LogLineFormat classifyLine(QByteArrayView utf8Line);

    // Folds the long format's header + message lines into single lines for format 10: each non-empty
    // line after a header, up to the next header, is joined with that header.
    static QStringList joinLongFormatArray(const QStringList &lines);
    static QList<QByteArray> joinLongFormatArray(const QList<QByteArrayView> &utf8Lines);

    // A system message entry: app "Quillfern", pid/tid/name "---", type "QF", time as
    // "YYYY-MM-dd HH:mm:ss.SSS" of `now` in local time.
    static LogEntry makeSystemMessage(const QString &text, LogIndexCounter &counter,
                                      const QDateTime &now = QDateTime::currentDateTime());
    // "YYYY-MM-dd HH:mm:ss.SSS" where YYYY is the ISO 8601 week-based year (the year of the week's
    // Thursday), so 2024-12-30 prints as "2025-12-30" and 2021-01-01 as "2020-01-01". QDateTime's
    // own patterns have no week-year letter, hence this function.
    static QString weekYearTimestamp(const QDateTime &time);

    // Length of a UTF-8 text in UTF-16 units.
    static qsizetype utf16Length(QByteArrayView utf8);
};
