// SPDX-License-Identifier: MIT
#include "Log/LogDocument.h"

#include "Helpers/BinaryPropertyList.h"
#include "Helpers/Logger.h"
#include "Log/TextDecoding.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>


#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <cstring>
#include <thread>

namespace {

constexpr QByteArrayView kNoteSeparator(" NOTE:[");
// Below this a second thread costs more than it saves.
constexpr qsizetype kParallelThreshold = 1 << 20;

// Length of the line end at pos (LF, VT, FF, CR, U+0085, U+2028, U+2029 in UTF-8), or 0.
inline qsizetype lineEndLength(const char *p, const char *end)
{
    const auto c = uchar(*p);
    if (c >= '\n' && c <= '\r')
        return 1;
    if (c == 0xC2)
        return (end - p >= 2 && uchar(p[1]) == 0x85) ? 2 : 0;
    if (c == 0xE2)
        return (end - p >= 3 && uchar(p[1]) == 0x80 && (uchar(p[2]) == 0xA8 || uchar(p[2]) == 0xA9)) ? 3 : 0;
    return 0;
}

// Finds the next line end from p: returns its position (end when none) and its length in *len.
inline const char *findLineEnd(const char *p, const char *end, qsizetype *len)
{
    for (; p < end; ++p) {
        const auto c = uchar(*p);
        // Everything at or above '\r' + 1 and below 0xC2 is neither a line end nor its lead byte.
        if (c > '\r' && c != 0xC2 && c != 0xE2)
            continue;
        const qsizetype n = lineEndLength(p, end);
        if (n) {
            *len = n;
            return p;
        }
    }
    *len = 0;
    return end;
}

// Walks the lines of [begin, end); the last line (after the last line end) is included, even empty.
class LineWalker
{
public:
    LineWalker(const char *begin, const char *end) : m_p(begin), m_end(end) {}
    bool next(const char **lineBegin, qsizetype *lineSize)
    {
        if (m_done)
            return false;
        qsizetype len = 0;
        const char *e = findLineEnd(m_p, m_end, &len);
        *lineBegin = m_p;
        *lineSize = e - m_p;
        if (len == 0)
            m_done = true;
        m_p = e + len;
        return true;
    }

private:
    const char *m_p;
    const char *m_end;
    bool m_done = false;
};

qsizetype countLines(QByteArrayView data)
{
    qsizetype n = 1;
    qsizetype len = 0;
    const char *p = data.data();
    const char *end = p + data.size();
    while ((p = findLineEnd(p, end, &len)) < end) {
        ++n;
        p += len;
    }
    return n;
}

bool hasThreeCharacters(QByteArrayView line)
{
    // A UTF-16 unit takes at most 3 bytes, so 7 bytes always hold 3 or more.
    return line.size() >= 7 || LogLineParser::utf16Length(line) >= 3;
}

bool isValidUtf8Parallel(QByteArrayView data)
{
    if (data.size() < kParallelThreshold)
        return data.isValidUtf8();
    // Split after a line feed so no character straddles the halves.
    const void *lf = std::memchr(data.data() + data.size() / 2, '\n', size_t(data.size() - data.size() / 2));
    if (!lf)
        return data.isValidUtf8();
    const qsizetype split = static_cast<const char *>(lf) - data.data() + 1;
    bool second = false;
    std::thread worker([&] { second = data.sliced(split).isValidUtf8(); });
    const bool first = data.first(split).isValidUtf8();
    worker.join();
    return first && second;
}

// Parses the lines of [from, to) of the buffer into one block builder; returns the lines walked.
qsizetype parseRange(const QByteArray &buffer, qsizetype from, qsizetype to, int format, LogEntryBlockBuilder *builder)
{
    const char *base = buffer.constData();
    qsizetype estimate = 0;
    for (const char *p = base + from; (p = static_cast<const char *>(std::memchr(p, '\n', size_t(base + to - p))));
         ++p)
        ++estimate;
    builder->reserve(estimate + 1);
    LineWalker lines(base + from, base + to);
    const char *line = nullptr;
    qsizetype size = 0;
    LogEntryFields fields;
    qsizetype walked = 0;
    while (lines.next(&line, &size)) {
        ++walked;
        const QByteArrayView view(line, size);
        if (!hasThreeCharacters(view))
            continue;
        if (LogLineParser::parseFields(view, format, &fields))
            builder->addRow(line - base, fields);
    }
    return walked;
}

// Start of the first line that begins at or after pos (so both halves hold whole lines).
qsizetype lineStartAfter(QByteArrayView data, qsizetype pos)
{
    qsizetype len = 0;
    const char *e = findLineEnd(data.data() + pos, data.data() + data.size(), &len);
    return (e - data.data()) + len;
}

} // namespace

void LogDocument::adviseHugePages(const void *data, qsizetype size)
{
    // Large buffers are touched page by page right after allocation; 2 MiB pages turn ~30,000
    // page faults per 124 MiB into ~60. A hint only: failure changes nothing.
    constexpr quintptr huge = quintptr(2) << 20;
    const quintptr begin = (quintptr(data) + huge - 1) & ~(huge - 1);
    const quintptr end = (quintptr(data) + quintptr(size)) & ~(huge - 1);
    if (end > begin)
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
}

LogDocument::FileKind LogDocument::kindForPath(const QString &path)
{
    const QString lower = path.toLower();
    if (lower.endsWith(QLatin1String("filters")))
        return FileKind::Filters;
    if (lower.endsWith(QLatin1String("quillfern")))
        return FileKind::DictionaryCandidate;
    return FileKind::Text;
}

QByteArray LogDocument::savedLine(const LogEntry &e)
{
    QByteArray line;
    line.reserve(100);
    line += e.utf8Value(LogEntry::Time);
    line += ' ';
    line += e.utf8Value(LogEntry::App);
    line += '(';
    line += e.utf8Value(LogEntry::Pid);
    line += ") ";
    line += e.utf8Value(LogEntry::Tid);
    line += ' ';
    line += e.utf8Value(LogEntry::Type);
    line += ' ';
    line += e.utf8Value(LogEntry::Name);
    line += ": ";
    line += e.utf8Value(LogEntry::Text);
    const QByteArray note = e.utf8Value(LogEntry::Note);
    if (!note.isEmpty()) {
        while (line.endsWith('\n') || line.endsWith('\r'))
            line.chop(1);
        line += kNoteSeparator;
        line += note;
    }
    if (!line.endsWith('\n'))
        line += '\n';
    return line;
}

QByteArray LogDocument::savedText(const QList<LogEntry> &entries)
{
    QByteArray text;
    text.reserve(entries.size() * 100);
    for (const LogEntry &e : entries)
        text += savedLine(e);
    return text;
}

bool LogDocument::writeTextFile(const QString &path, const QList<LogEntry> &entries, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    const QByteArray text = savedText(entries);
    if (file.write(text) != text.size()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

LogFileResult LogDocument::readTextFile(const QString &path, LogIndexCounter &counter)
{
    LogFileResult failed;
    const auto fail = [&](const QString &why) {
        failed.errorString = why;
        QF_LOG(QStringLiteral("unable to open: %1, %2").arg(path, why));
        return failed;
    };
    // Only regular files: a device never ends (/dev/zero fills memory) and a pipe with no writer
    // blocks the open itself, and with it quitting.
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISREG(st.st_mode)) {
        return fail(S_ISDIR(st.st_mode) ? QStringLiteral("%1 is a folder, not a log file.").arg(path)
                                        : QStringLiteral("%1 is not a regular file (a device, pipe or socket).")
                                              .arg(path));
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("Cannot open %1: %2").arg(path, file.errorString()));
    const qint64 size = file.size();
    if (size > MaxFileSize)
        return fail(QStringLiteral("%1 is too large to open (%2 MiB; the limit is 2 GiB).").arg(path).arg(size >> 20));
    QByteArray data;
    if (size == 0) {
        // Files that report no size (procfs and the like) are read up to the limit.
        constexpr qint64 chunk = 1 << 20;
        while (!file.atEnd()) {
            const QByteArray part = file.read(chunk);
            if (part.isEmpty())
                break;
            if (data.size() + part.size() > MaxFileSize)
                return fail(QStringLiteral("%1 is too large to open (the limit is 2 GiB).").arg(path));
            data += part;
        }
    } else {
        data = QByteArray(qsizetype(size), Qt::Uninitialized);
        adviseHugePages(data.constData(), data.size());
        // Two readers, one per half: the copy out of the page cache and the page faults of the new
        // buffer are most of the cost of reading.
        const int fd = file.handle();
        const auto readRange = [fd, &data](qint64 from, qint64 to) {
            while (from < to) {
                const ssize_t n = ::pread(fd, data.data() + from, size_t(to - from), off_t(from));
                if (n <= 0)
                    return from;
                from += n;
            }
            return from;
        };
        const qint64 mid = size >= kParallelThreshold ? size / 2 : size;
        qint64 secondEnd = size;
        std::thread worker;
        if (mid < size)
            worker = std::thread([&] { secondEnd = readRange(mid, size); });
        const qint64 firstEnd = readRange(0, mid);
        if (worker.joinable())
            worker.join();
        if (firstEnd < mid || secondEnd < size)
            return fail(QStringLiteral("Cannot read %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno))));
    }
    file.close();
    return readTextData(std::move(data), counter, path);
}

LogFileResult LogDocument::readTextData(QByteArray data, LogIndexCounter &counter, const QString &name)
{
    LogFileResult result;
    result.ok = true;
    TextDecoding::Result text = TextDecoding::decode(std::move(data), isValidUtf8Parallel);
    if (text.step != TextDecoding::Step::Utf8)
        QF_LOG(QStringLiteral("unable to open: %1, %2").arg(name, QStringLiteral("not valid UTF-8")));
    if (text.step == TextDecoding::Step::Latin1)
        QF_LOG(QStringLiteral("unable to open (NSISOLatin1StringEncoding): %1, %2")
                   .arg(name, QStringLiteral("no encoding detected")));
    data = std::move(text.utf8);
    result.encoding = text.encoding;
    LineWalker walker(data.constData(), data.constData() + data.size());
    result.format = LogLineParser::determineLogType([&walker](QByteArrayView *line) {
        const char *b = nullptr;
        qsizetype n = 0;
        if (!walker.next(&b, &n))
            return false;
        *line = QByteArrayView(b, n);
        return true;
    });
    if (result.format == LogLineFormatUnknown || result.format == LogLineFormatLong) {
        result.lineCount = countLines(data);
        QF_LOG(QStringLiteral("reading file:%1, lines:%2").arg(name).arg(result.lineCount));
    }
    if (result.format == LogLineFormatUnknown)
        return result;

    if (result.format == LogLineFormatLong) {
        QList<QByteArrayView> lines;
        LineWalker all(data.constData(), data.constData() + data.size());
        const char *b = nullptr;
        qsizetype n = 0;
        while (all.next(&b, &n))
            lines.append(QByteArrayView(b, n));
        const QList<QByteArray> joined = LogLineParser::joinLongFormatArray(lines);
        for (const QByteArray &line : joined) {
            if (!hasThreeCharacters(line))
                continue;
            const LogEntry e = LogLineParser::parseThreadTimeLine(QByteArrayView(line), result.format, counter);
            if (!e.isNull())
                result.entries.append(e);
        }
        return result;
    }

    const qsizetype split = data.size() >= kParallelThreshold ? lineStartAfter(data, data.size() / 2) : data.size();
    LogEntryBlockBuilder first(data);
    LogEntryBlockBuilder second(data);
    if (split < data.size()) {
        qsizetype secondLines = 0;
        std::thread worker([&] { secondLines = parseRange(data, split, data.size(), result.format, &second); });
        // The first range ends right after a line end, so its walk counts one empty line too many.
        result.lineCount = parseRange(data, 0, split, result.format, &first) - 1;
        worker.join();
        result.lineCount += secondLines;
    } else {
        result.lineCount = parseRange(data, 0, data.size(), result.format, &first);
    }
    QF_LOG(QStringLiteral("reading file:%1, lines:%2").arg(name).arg(result.lineCount));
    const qsizetype n1 = first.size();
    result.entries.reserve(n1 + second.size());
    adviseHugePages(result.entries.constData(), result.entries.capacity() * qsizetype(sizeof(LogEntry)));
    const quint64 base = counter.reserve(quint64(n1 + second.size()));
    first.appendTo(result.entries, base);
    second.appendTo(result.entries, base + quint64(n1));
    return result;
}

std::optional<qsizetype> LogDocument::dictionaryDocumentLineCount(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > MaxFileSize)
        return std::nullopt;
    // Property lists start with "bplist" or an XML declaration; anything else is text.
    const QByteArray head = file.peek(64).trimmed();
    if (!head.startsWith("bplist") && !head.startsWith("<?xml") && !head.startsWith("<plist") &&
        !head.startsWith("<!DOCTYPE"))
        return std::nullopt;
    const QByteArray data = file.readAll();
    // Read without recursion: a document nested thousands deep must not take the stack with it.
    std::optional<qsizetype> count;
    if (data.startsWith("bplist")) {
        BinaryPropertyList plist(data);
        QString why;
        QList<quint64> keys;
        QList<quint64> values;
        if (!plist.open(&why) || !plist.dictionary(plist.top(), &keys, &values))
            return std::nullopt;
        for (qsizetype i = 0; i < keys.size(); ++i) {
            if (plist.string(keys[i]) == QStringLiteral("logdata"))
                count = qsizetype(plist.arraySize(values[i]).value_or(0));
        }
        return count;
    }
    QXmlStreamReader xml(data);
    // The next element inside the current one; false at its end (or at an error).
    const auto nextStart = [&xml] { return xml.readNextStartElement(); };
    if (!nextStart())
        return std::nullopt;
    if (xml.name() == u"plist" && !nextStart())
        return std::nullopt;
    if (xml.name() != u"dict")
        return std::nullopt;
    while (nextStart()) { // the dictionary's keys and values, in turn
        if (xml.name() != u"key")
            return std::nullopt;
        const bool isLogData = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement) == u"logdata";
        if (!nextStart())
            return std::nullopt;
        if (isLogData && xml.name() == u"array") {
            qsizetype n = 0;
            while (nextStart()) {
                ++n;
                xml.skipCurrentElement();
            }
            count = n;
        } else {
            if (isLogData)
                count = 0;
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError())
        return std::nullopt;
    return count;
}
