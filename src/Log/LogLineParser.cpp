// SPDX-License-Identifier: MIT
#include "Log/LogLineParser.h"

#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Log/LogLineScanner.h"

#include <QDate>

#include <cstring>

namespace {

using Slice = LogLineScanner::Slice;
using F = LogEntry::Field;

constexpr QByteArrayView kBlank(" ");
constexpr QByteArrayView kNoteSeparator(" NOTE:[");

// The note separator in a text, from `from` on, or -1. Every line's text is searched, and a general
// substring search costs more than the rest of the parse: " NOTE:[" is found through its rare 'N'.
qsizetype indexOfNote(QByteArrayView text, qsizetype from = 0)
{
    const char *begin = text.data();
    const char *end = begin + text.size();
    const char *p = begin + from + 1; // where the 'N' may stand
    while (p < end) {
        p = static_cast<const char *>(std::memchr(p, 'N', size_t(end - p)));
        if (!p)
            return -1;
        if (end - p >= kNoteSeparator.size() - 1 && p[-1] == ' ' &&
            std::memcmp(p, kNoteSeparator.data() + 1, size_t(kNoteSeparator.size() - 1)) == 0)
            return p - 1 - begin;
        ++p;
    }
    return -1;
}

QByteArrayView sliceOf(QByteArrayView line, Slice s)
{
    return line.sliced(s.begin, s.size);
}

// Byte length of the last UTF-8 character of a non-empty slice.
qsizetype lastCharLength(QByteArrayView line, Slice s)
{
    qsizetype n = 1;
    while (n < s.size && n < 4 && (uchar(line[s.begin + s.size - n]) & 0xC0) == 0x80)
        ++n;
    return (uchar(line[s.begin + s.size - n]) & 0xC0) == 0x80 ? 1 : n;
}

// Removes blanks and tabs from both ends.
Slice trimmed(QByteArrayView line, Slice s)
{
    while (s.size > 0 && (line[s.begin] == ' ' || line[s.begin] == '\t')) {
        ++s.begin;
        --s.size;
    }
    while (s.size > 0 && (line[s.begin + s.size - 1] == ' ' || line[s.begin + s.size - 1] == '\t'))
        --s.size;
    return s;
}

void setSlice(LogEntryFields *f, F field, Slice s)
{
    f->setSlice(field, s.begin, s.size);
}

// "time" is date, one blank, time: a slice of the line when they stood exactly one blank apart.
void setTime(QByteArrayView line, LogEntryFields *f, Slice date, Slice time)
{
    if (time.size > 0 && time.begin == date.begin + date.size + 1 && line[date.begin + date.size] == ' ') {
        f->setSlice(F::Time, date.begin, date.size + 1 + time.size);
        return;
    }
    QByteArray joined;
    joined.reserve(date.size + 1 + time.size);
    joined.append(sliceOf(line, date)).append(' ').append(sliceOf(line, time));
    f->setOwned(F::Time, joined);
}

void applyTidRule(QByteArrayView line, LogEntryFields *f)
{
    if (f->isOwned(F::Tid))
        return;
    if (f->view(line, F::Tid) == f->view(line, F::Pid))
        f->setOwned(F::Tid, QByteArray::fromRawData("-", 1)); // no allocation, no shared count
}

bool readTime(LogLineScanner &scanner, QByteArrayView line, int format, LogEntryFields *f)
{
    Slice date;
    Slice time;
    if (format == LogLineFormatLong) {
        Slice bracket;
        scanner.scanUpTo(kBlank, &bracket); // the "[" of the header, dropped
    }
    if (!scanner.scanUpTo(kBlank, &date) || !scanner.scanUpTo(kBlank, &time))
        return false;
    if (format == LogLineFormatTimeColon)
        time.size -= lastCharLength(line, time);
    setTime(line, f, date, time);
    return true;
}

bool parseThreadTimeFields(LogLineScanner &scanner, QByteArrayView line, int format, LogEntryFields *f,
                           const LogLineParser::AppLookup &lookup)
{
    Slice token;
    if (!scanner.scanUpTo(kBlank, &token))
        return false;
    const QByteArrayView tokenView = sliceOf(line, token);
    if (format == LogLineFormatThreadTimeApp) {
        const qsizetype open = tokenView.indexOf('(');
        if (open >= 0 && tokenView.endsWith(')')) {
            f->setSlice(F::App, token.begin, open);
            f->setSlice(F::Pid, token.begin + open + 1, token.size - open - 2);
        } else {
            setSlice(f, F::Pid, token);
        }
    } else {
        setSlice(f, F::Pid, token);
        if (format == LogLineFormatStream && lookup) {
            const QString app = lookup(QString::fromUtf8(tokenView));
            if (!app.isEmpty())
                f->setOwned(F::App, app.toUtf8());
        }
    }
    Slice tid;
    Slice type;
    Slice name;
    if (!scanner.scanUpTo(kBlank, &tid) || !scanner.scanUpTo(kBlank, &type))
        return false;
    setSlice(f, F::Tid, tid);
    setSlice(f, F::Type, type);
    if (scanner.scanUpTo(":", &name))
        setSlice(f, F::Name, name);
    applyTidRule(line, f);
    return true;
}

bool parseTagPidFields(LogLineScanner &scanner, QByteArrayView line, int format, LogEntryFields *f)
{
    Slice type;
    Slice name;
    Slice pid;
    if (!scanner.scanUpTo("/", &type) || !scanner.scanUpTo("(", &name))
        return false;
    setSlice(f, F::Type, type);
    setSlice(f, F::Name, name);
    if (format == LogLineFormatTimeColon) {
        const QString tag = QString::fromUtf8(sliceOf(line, name));
        QString app;
        const std::optional<QString> cut = qf::removeSubstringBetween(tag, u"**", u"**", &app);
        if (!cut)
            f->setOwned(F::Name, QByteArray(""));
        else if (*cut != tag)
            f->setOwned(F::Name, cut->toUtf8());
        if (!app.isEmpty())
            f->setOwned(F::App, app.toUtf8());
    }
    if (!scanner.scanUpTo("):", &pid))
        return false;
    setSlice(f, F::Pid, trimmed(line, pid));
    return true;
}

bool parseLongHeader(LogLineScanner &scanner, QByteArrayView line, LogEntryFields *f)
{
    Slice pid;
    Slice part;
    Slice name;
    if (!scanner.scanUpTo(":", &pid) || !scanner.scanUpTo("/", &part))
        return false;
    setSlice(f, F::Pid, pid);
    const qsizetype typeLength = lastCharLength(line, part);
    f->setSlice(F::Type, part.begin + part.size - typeLength, typeLength);
    setSlice(f, F::Tid, trimmed(line, {part.begin, part.size - typeLength}));
    if (!scanner.scanUpTo("]", &name))
        return false;
    setSlice(f, F::Name, name);
    applyTidRule(line, f);
    return true;
}

qsizetype utf16PrefixLength(QByteArrayView s, qsizetype limit)
{
    qsizetype units = 0;
    for (qsizetype i = 0; i < s.size() && units < limit; ++i) {
        const auto c = uchar(s[i]);
        if ((c & 0xC0) != 0x80)
            units += c >= 0xF0 ? 2 : 1;
    }
    return units;
}

} // namespace

qsizetype LogLineParser::utf16Length(QByteArrayView utf8)
{
    return utf16PrefixLength(utf8, std::numeric_limits<qsizetype>::max());
}

bool LogLineParser::parseFields(QByteArrayView line, int format, LogEntryFields *f, const AppLookup &lookup)
{
    f->reset();
    if (!line.isEmpty() && line[0] == '-')
        format = LogLineFormatRaw;
    LogLineScanner scanner(line);
    switch (format) {
    case LogLineFormatStream:
    case LogLineFormatThreadTimeApp:
    case LogLineFormatThreadTime:
        if (!readTime(scanner, line, format, f) || !parseThreadTimeFields(scanner, line, format, f, lookup))
            return false;
        break;
    case LogLineFormatTimeColon:
    case LogLineFormatTime:
        if (!readTime(scanner, line, format, f) || !parseTagPidFields(scanner, line, format, f))
            return false;
        break;
    case LogLineFormatBrief:
        if (!parseTagPidFields(scanner, line, format, f))
            return false;
        break;
    case LogLineFormatProcess: {
        Slice type;
        Slice pid;
        if (!scanner.scanUpTo("(", &type) || !scanner.scanUpTo(")", &pid))
            return false;
        setSlice(f, F::Type, type);
        setSlice(f, F::Pid, trimmed(line, pid));
        break;
    }
    case LogLineFormatTag: {
        Slice type;
        Slice name;
        if (!scanner.scanUpTo("/", &type) || !scanner.scanUpTo(": ", &name))
            return false;
        setSlice(f, F::Type, type);
        setSlice(f, F::Name, name);
        break;
    }
    case LogLineFormatLong:
        if (!readTime(scanner, line, format, f) || !parseLongHeader(scanner, line, f))
            return false;
        break;
    default: // 0, 7 and any other number: the whole line is text
        break;
    }
    Slice text;
    if (!scanner.scanUpTo("\n", &text))
        return false;
    const QByteArrayView textView = sliceOf(line, text);
    const qsizetype note = indexOfNote(textView);
    if (note < 0) {
        setSlice(f, F::Text, text);
        return true;
    }
    f->setSlice(F::Text, text.begin, note);
    const qsizetype noteBegin = note + kNoteSeparator.size();
    qsizetype noteEnd = indexOfNote(textView, noteBegin);
    if (noteEnd < 0)
        noteEnd = textView.size();
    f->setSlice(F::Note, text.begin + noteBegin, noteEnd - noteBegin);
    return true;
}

LogEntry LogLineParser::parseThreadTimeLine(QByteArrayView line, int format, LogIndexCounter &counter,
                                            const AppLookup &lookup)
{
    LogEntryFields fields;
    if (!parseFields(line, format, &fields, lookup))
        return {};
    return LogEntry::fromLine(counter.getIndex(), line, fields);
}

LogEntry LogLineParser::parseThreadTimeLine(QStringView line, int format, LogIndexCounter &counter,
                                            const AppLookup &lookup)
{
    return parseThreadTimeLine(QByteArrayView(line.toUtf8()), format, counter, lookup);
}

LogLineFormat LogLineParser::classifyLine(QByteArrayView line)
{
    // Positions count UTF-16 units; 128 bytes always decode to more than the 21 units looked at.
    const QString head = QString::fromUtf8(line.first(std::min<qsizetype>(line.size(), 128)));
    const auto at = [&head](qsizetype i) { return qf::safeCharacterAtIndex(head, i); };
    if (at(0) == u'[')
        return LogLineFormatLong;
    if (at(1) == u'/')
        return line.indexOf("):") >= 0 ? LogLineFormatBrief : LogLineFormatTag;
    if (at(1) == u'(')
        return LogLineFormatProcess;
    if (at(18) == u':')
        return LogLineFormatTimeColon;
    if (at(20) == u'/')
        return LogLineFormatTime;
    if (at(2) == u'-') {
        LogLineScanner scanner(line);
        Slice token;
        scanner.scanUpTo(kBlank, &token);
        scanner.scanUpTo(kBlank, &token);
        Slice third;
        if (scanner.scanUpTo(kBlank, &third) && line.sliced(third.begin, third.size).contains('('))
            return LogLineFormatThreadTimeApp;
        return LogLineFormatThreadTime;
    }
    return LogLineFormatRaw;
}

namespace {

} // namespace

LogLineFormat LogLineParser::determineLogType(const NextLine &nextLine)
{
    int previous = 0;
    int run = 0;
    int examined = 0;
    QByteArrayView line;
    for (qsizetype number = 0; nextLine(&line); ++number) {
        if (line.size() < 7 && utf16PrefixLength(line, 2) < 2)
            continue;
        if (line[0] == '-')
            continue;
        const int cls = classifyLine(line);
        if (cls == LogLineFormatLong) {
            QByteArrayView skipped; // its message line and the blank line after it
            for (int k = 0; k < 2 && nextLine(&skipped); ++k)
                ++number;
        }
        if (previous == 0) {
            run = 1;
            previous = cls;
        } else if (cls == previous) {
            if (run < 4) {
                ++run;
            } else {
                QF_LOG(QStringLiteral("GOT TYPE:%1").arg(previous));
                return LogLineFormat(previous);
            }
        } else {
            run = 0;
            QF_LOG(QStringLiteral("type changed:%1 to %2, line:%3").arg(previous).arg(cls).arg(number));
            previous = cls;
        }
        if (examined >= 30) {
            QF_LOG(QStringLiteral("UNKNOWN FILE TYPE! %1")
                       .arg(QString::fromUtf8(line.first(std::min<qsizetype>(line.size(), 200)))));
            QF_LOG(QStringLiteral("UNKNOWN FILE TYPE! matches:%1, prevType:%2").arg(run).arg(previous));
            return LogLineFormat(cls);
        }
        ++examined;
    }
    QF_LOG(QStringLiteral("UNKNOWN FILE TYPE! matches:%1, prevType:%2").arg(run).arg(previous));
    return LogLineFormat(previous);
}

LogLineFormat LogLineParser::determineLogType(const QList<QByteArrayView> &lines)
{
    qsizetype i = 0;
    return determineLogType([&](QByteArrayView *line) {
        if (i >= lines.size())
            return false;
        *line = lines[i++];
        return true;
    });
}

LogLineFormat LogLineParser::determineLogType(const QStringList &lines)
{
    QByteArray current;
    qsizetype i = 0;
    return determineLogType([&](QByteArrayView *line) {
        if (i >= lines.size())
            return false;
        current = lines[i++].toUtf8();
        *line = current;
        return true;
    });
}

namespace {

QString toOwned(QStringView v)
{
    return v.toString();
}
QByteArray toOwned(QByteArrayView v)
{
    return v.toByteArray();
}

// "[ 01-23 14:05:06.789  1234: 5678 D/Tag ]", a carriage return after it allowed.
template <typename View> bool looksLikeHeader(View line)
{
    while (!line.isEmpty() && (line.back() == '\r' || line.back() == ' '))
        line.chop(1);
    return line.size() > 2 && line[0] == '[' && line[1] == ' ' && line.back() == ']';
}

template <typename Line, typename Out, typename GetLine>
void joinLong(qsizetype count, const GetLine &lineAt, Out &out)
{
    // Departure: only the first line after a header used to be kept, so a crash read from a long
    // capture showed "FATAL EXCEPTION: main" and lost its trace. Every further non-empty line becomes
    // an entry with the header's fields, as threadtime shows a multi-line message, until the next header.
    std::optional<Line> header;
    bool hasMessage = false;
    for (qsizetype i = 0; i < count; ++i) {
        const auto line = lineAt(i);
        if (line.startsWith(QLatin1String("--------- "))) { // logcat's separator between its buffers
            header.reset();
            continue;
        }
        if (!header || (hasMessage && looksLikeHeader(line))) {
            if (!line.isEmpty() && line[0] == '[') {
                header = toOwned(line);
                hasMessage = false;
            }
        } else if (!line.isEmpty()) {
            Line joined = *header;
            joined += line;
            out.append(std::move(joined));
            hasMessage = true;
        }
    }
}

} // namespace

QStringList LogLineParser::joinLongFormatArray(const QStringList &lines)
{
    QStringList out;
    joinLong<QString>(lines.size(), [&lines](qsizetype i) { return QStringView(lines[i]); }, out);
    return out;
}

QList<QByteArray> LogLineParser::joinLongFormatArray(const QList<QByteArrayView> &lines)
{
    QList<QByteArray> out;
    joinLong<QByteArray>(lines.size(), [&lines](qsizetype i) { return lines[i]; }, out);
    return out;
}

QString LogLineParser::weekYearTimestamp(const QDateTime &time)
{
    const QDateTime local = time.toLocalTime();
    int weekYear = 0;
    local.date().weekNumber(&weekYear);
    return QStringLiteral("%1-%2").arg(weekYear, 4, 10, QLatin1Char('0')).arg(local.toString(u"MM-dd HH:mm:ss.zzz"));
}

LogEntry LogLineParser::makeSystemMessage(const QString &text, LogIndexCounter &counter, const QDateTime &now)
{
    const QString dashes = QStringLiteral("---");
    return LogEntry::create(counter.getIndex(), {weekYearTimestamp(now), QStringLiteral("Quillfern"), dashes, dashes,
                                                 QStringLiteral("QF"), dashes, text, QString()});
}
