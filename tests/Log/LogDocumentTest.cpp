// SPDX-License-Identifier: MIT
#include "Filters/Filter.h"
#include "Log/LogDocument.h"
#include "support/PropertyLists.h"
#include "support/TestEntries.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <future>

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

namespace {

LogFileResult readData(const QByteArray &data)
{
    LogIndexCounter counter;
    return LogDocument::readTextData(data, counter, QStringLiteral("test"));
}

LogFileResult readSample(const char *name)
{
    LogIndexCounter counter;
    return LogDocument::readTextFile(QStringLiteral(QF_TEST_DATA_DIR "/") + QLatin1String(name), counter);
}

// Threadtime text with non-ASCII, notes, odd lines and line ends, for the parallel reader.
QByteArray generatedThreadTime(int lines, quint32 seed)
{
    QRandomGenerator rng(seed);
    const char *tags[] = {"ActivityManager", "chromium", "Tag with blanks ", "日志", "x"};
    const char *texts[] = {"Start proc", "{\"a\":1}", "écran größe", " lead", "a NOTE:[b", "tab\there", ""};
    QByteArray out;
    for (int i = 0; i < lines; ++i) {
        const int pid = 100 + int(rng.bounded(50));
        const int tid = rng.bounded(3) == 0 ? pid : pid + 1 + int(rng.bounded(9));
        out += QString::asprintf("%02d-23 12:00:%02d.%03d %5d %5d %c %s: %s%s", 1 + i % 12, i % 60, i % 1000, pid, tid,
                                 "VDIWEF"[rng.bounded(6)], tags[rng.bounded(5)], texts[rng.bounded(7)],
                                 rng.bounded(50) == 0 ? "\r\n" : "\n")
                   .toUtf8();
        if (i % 1000 == 0)
            out += "--------- beginning of main\n";
    }
    return out;
}

} // namespace

TEST(LogDocumentTest, SavedLineLayout)
{
    const std::pair<EntryFields, const char *> cases[] = {
        {{.app = "com.example", .tid = "5678", .type = "W", .text = " hi"},
         "01-23 14:05:06.789 com.example(1234) 5678 W Tag:  hi\n"},
        {{.text = " hi", .note = "seen"}, "01-23 14:05:06.789 (1234) - I Tag:  hi NOTE:[seen\n"},
        {{.text = " x\r\n", .note = "n"}, "01-23 14:05:06.789 (1234) - I Tag:  x NOTE:[n\n"}, // line ends go first
        {{.text = " x\n"}, "01-23 14:05:06.789 (1234) - I Tag:  x\n"},
    };
    for (const auto &[fields, line] : cases)
        EXPECT_EQ(LogDocument::savedLine(testEntry(fields)), line);
}

TEST(LogDocumentTest, RoundTripKeepsEveryFieldAndAddsOneLeadingBlank)
{
    QRandomGenerator rng(7);
    const QStringList apps{"", "com.example", "system_server", "org.ü.app"};
    const QStringList texts{" hi", " a: b (c) [d]", " écran 🚀", "  two", " x NOTE", " {\"k\":[1,2]}"};
    const QStringList notes{"", "checked", "é note", "a (b): c"};
    QList<LogEntry> entries;
    for (int i = 0; i < 300; ++i) {
        entries << testEntry({.idx = quint64(i),
                              .time = QStringLiteral("01-%1 10:11:12.%2").arg(10 + i % 18).arg(100 + i),
                              .app = apps[rng.bounded(apps.size())],
                              .pid = QString::number(100 + rng.bounded(900)),
                              .tid = rng.bounded(2) ? QStringLiteral("-") : QString::number(1000 + i),
                              .type = QString(QChar::fromLatin1("VDIWEFA"[i % 7])),
                              .name = rng.bounded(2) ? QStringLiteral("Tag") : QStringLiteral("Some Tag"),
                              .text = texts[rng.bounded(texts.size())],
                              .note = notes[rng.bounded(notes.size())]});
    }
    LogFileResult once = readData(LogDocument::savedText(entries));
    ASSERT_TRUE(once.ok);
    EXPECT_EQ(once.format, LogLineFormatThreadTimeApp);
    ASSERT_EQ(once.entries.size(), entries.size());
    for (qsizetype i = 0; i < entries.size(); ++i) {
        QStringList expected = fieldsOf(entries[i]).split(u'|');
        expected[6].prepend(u' ');
        ASSERT_EQ(fieldsOf(once.entries[i]), expected.join(u'|')) << "row " << i;
        EXPECT_EQ(once.entries[i].idx(), quint64(i));
    }
    const LogFileResult twice = readData(LogDocument::savedText(once.entries));
    ASSERT_EQ(twice.entries.size(), entries.size());
    EXPECT_EQ(twice.entries[0].value(LogEntry::Text), QStringLiteral("  ") + entries[0].value(LogEntry::Text));
}

TEST(LogDocumentTest, NoteWithLineFeedBecomesItsOwnRawLine)
{
    QList<LogEntry> entries;
    for (int i = 0; i < 6; ++i)
        entries << LogEntry::create(quint64(i), {"01-23 14:05:06.789", "app", "12", "-", "I", "T", " m", ""});
    entries[2].setNote(QStringLiteral("first\nsecond line"));
    const LogFileResult r = readData(LogDocument::savedText(entries));
    EXPECT_EQ(r.lineCount, 8);
    ASSERT_EQ(r.entries.size(), 6) << "the raw line does not parse as saved text";
    EXPECT_EQ(r.entries[2].value(LogEntry::Note), "first");
}

TEST(LogDocumentTest, EveryLineSeparatorSplitsLinesAndCrLfCountsAsTwo)
{
    const QByteArray line = "01-23 14:05:06.789  1  2 I T: x";
    QByteArray data;
    for (const char *sep : {"\n", "\r", "\r\n", "\v", "\f", "\xc2\x85", "\xe2\x80\xa8", "\xe2\x80\xa9"})
        data += line + sep;
    const LogFileResult r = readData(data);
    EXPECT_EQ(r.lineCount, 10); // the empty line between CR and LF counts
    ASSERT_EQ(r.entries.size(), 8);
    for (const LogEntry &e : r.entries)
        EXPECT_EQ(e.value(LogEntry::Text), " x"); // no separator left in the text
}

TEST(LogDocumentTest, TwoThreadReadMatchesLineByLineParsing)
{
    const QByteArray data = generatedThreadTime(30000, 11); // above the two-thread threshold
    ASSERT_GT(data.size(), 1 << 20);
    LogIndexCounter counter;
    counter.reserve(40);
    const LogFileResult r = LogDocument::readTextData(data, counter);
    ASSERT_EQ(r.format, LogLineFormatThreadTime);
    LogIndexCounter reference;
    QList<LogEntry> expected;
    for (const QByteArray &line : data.split('\n')) {
        const QByteArray l = line.endsWith('\r') ? line.chopped(1) : line;
        if (LogLineParser::utf16Length(l) < 3)
            continue;
        const LogEntry e = LogLineParser::parseThreadTimeLine(QByteArrayView(l), LogLineFormatThreadTime, reference);
        if (!e.isNull())
            expected << e;
    }
    ASSERT_EQ(r.entries.size(), expected.size());
    for (qsizetype i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(r.entries[i].idx(), quint64(40 + i));
        ASSERT_EQ(fieldsOf(r.entries[i]), fieldsOf(expected[i])) << "row " << i;
    }
    EXPECT_EQ(counter.peek(), quint64(40 + expected.size()));
}

TEST(LogDocumentTest, EncodingFallbacksReachTheParser)
{
    const QString text = QStringLiteral("01-23 14:05:06.789  1  2 I T: 日志\n").repeated(6);
    QByteArray utf16("\xff\xfe", 2);
    utf16.append(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
    const LogFileResult u = readData(utf16);
    EXPECT_EQ(u.encoding, "UTF-16LE");
    EXPECT_EQ(u.entries.value(5).value(LogEntry::Text), QString::fromUtf8(" 日志"));
    // A mark on valid UTF-8 does not stick to the first time.
    const LogFileResult bom = readData("\xef\xbb\xbf" + QByteArray("01-23 14:05:06.789  1  2 I T: x\n").repeated(5));
    EXPECT_EQ(bom.entries.value(0).value(LogEntry::Time), "01-23 14:05:06.789");
}

TEST(LogDocumentTest, UnreadableFilesAreReportedAndOddOnesDoNotBreak)
{
    QTemporaryDir dir;
    LogIndexCounter counter;
    EXPECT_TRUE(LogDocument::readTextFile(dir.filePath("missing.log"), counter).errorString.contains("missing.log"));
    EXPECT_TRUE(LogDocument::readTextFile(dir.path(), counter).errorString.endsWith("is a folder, not a log file."));

    const LogFileResult empty = LogDocument::readTextFile(writeTestFile(dir.filePath("empty.log"), {}), counter);
    EXPECT_TRUE(empty.ok && empty.entries.isEmpty());
    EXPECT_EQ(empty.format, LogLineFormatUnknown);

    QRandomGenerator rng(5);
    QByteArray binary(3 << 20, Qt::Uninitialized);
    for (char &c : binary)
        c = char(rng.bounded(256));
    const LogFileResult bin = LogDocument::readTextFile(writeTestFile(dir.filePath("random.bin"), binary), counter);
    EXPECT_TRUE(bin.ok);
    EXPECT_EQ(bin.encoding, "ISO 8859-1");

    QByteArray noLineFeed(100 << 20, 'a');
    noLineFeed.replace(0, 4, "I/T:");
    const QString bigPath = writeTestFile(dir.filePath("one-line.log"), noLineFeed);
    noLineFeed.clear();
    const LogFileResult big = LogDocument::readTextFile(bigPath, counter);
    EXPECT_TRUE(big.ok);
    EXPECT_EQ(big.lineCount, 1);
    EXPECT_EQ(big.format, LogLineFormatTag);
    EXPECT_TRUE(big.entries.isEmpty()) << "\"I/T:\" is not followed by \": \"";
    EXPECT_EQ(counter.peek(), bin.entries.size());
}

TEST(LogDocumentTest, RealWorldSamples)
{
    // {file, format, entries, row, field, value}
    const std::tuple<const char *, int, qsizetype, int, LogEntry::Field, const char *> cases[] = {
        {"threadtime_simple_clock.log", LogLineFormatThreadTime, 12, 3, LogEntry::Text,
         " \tat com.simplemobiletools.clock.App$g.a(SourceFile:3)"},
        {"threadtime_simple_clock.log", LogLineFormatThreadTime, 12, 11, LogEntry::Name, "DropBoxManagerService"},
        {"threadtime_crlf_tinytraveltracker.log", LogLineFormatThreadTime, 6, 0, LogEntry::Pid, "25819"},
        {"time_smssync.log", LogLineFormatTime, 12, 5, LogEntry::Name, "power   "},
        {"brief_detlef.log", LogLineFormatBrief, 10, 1, LogEntry::Pid, "196"},
    };
    for (const auto &[file, format, count, row, field, value] : cases) {
        SCOPED_TRACE(file);
        const LogFileResult r = readSample(file);
        EXPECT_EQ(r.format, format);
        ASSERT_EQ(r.entries.size(), count);
        EXPECT_EQ(r.entries[row].value(field), QString::fromUtf8(value));
    }
    // A crash from a long capture: every line of its trace is an entry of the crash's header, searchable.
    const LogFileResult crash = readSample("long_crash_shop.log");
    EXPECT_EQ(crash.format, LogLineFormatLong);
    ASSERT_EQ(crash.entries.size(), 21);
    QStringList trace;
    for (const LogEntry &e : crash.entries.mid(6, 13)) {
        EXPECT_EQ(fieldsOf(e).section(u'|', 0, 5), "03-14 09:26:54.020||4711|-|E|AndroidRuntime ");
        trace.append(e.value(LogEntry::Text));
    }
    EXPECT_EQ(trace.first(), "FATAL EXCEPTION: main");
    EXPECT_EQ(trace.last(), "\tat com.android.internal.os.ZygoteInit.main(ZygoteInit.java:947)");
    EXPECT_EQ(crash.entries[19].value(LogEntry::Text), "  Force finishing activity com.example.shop/.MainActivity");
    const Filter search = Filter::parse(QStringLiteral("text CONTAINS[cd] 'cartfragment.onitemclicked'"));
    EXPECT_EQ(filterEntries(crash.entries, search).size(), 1);

    // Android Studio's copy format looks like threadtime to detection; most lines then yield nothing.
    const LogFileResult studio = readSample("studio_bugly.log");
    EXPECT_EQ(studio.format, LogLineFormatThreadTime);
    EXPECT_LT(studio.entries.size(), 7);
}

TEST(LogDocumentTest, FileKindsAndDictionaryDocument)
{
    EXPECT_EQ(LogDocument::kindForPath("/a/X.FILTERS"), LogDocument::FileKind::Filters);
    EXPECT_EQ(LogDocument::kindForPath("/a/b.Quillfern"), LogDocument::FileKind::DictionaryCandidate);
    EXPECT_EQ(LogDocument::kindForPath("/a/b.log"), LogDocument::FileKind::Text);
    // The binary form, with another key before the rows.
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "version", plist_new_uint(2));
    plist_t rows = plist_new_array();
    for (int i = 0; i < 3; ++i)
        plist_array_append_item(rows, plist_new_dict());
    plist_dict_set_item(root, "logdata", rows);
    const QByteArray binary = plistBytes(root, true);

    const QByteArray head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    const std::pair<QByteArray, std::optional<qsizetype>> documents[] = {
        {head + "<dict><key>logdata</key><array><dict/><dict/></array></dict></plist>\n", 2},
        {binary, 3},
        // Nested content is skipped, not followed.
        {head + "<dict><key>meta</key><array><array><dict/></array></array><key>logdata</key><array><dict><key>a"
                "</key><array/></dict></array></dict></plist>",
         1},
        {head + "<array/></plist>\n", std::nullopt},
        {"01-23 x\n", std::nullopt},
        // Nesting 200,000 deep ends the reading, not the program.
        {head + "<dict><key>logdata</key>" + QByteArray("<array>").repeated(200000), std::nullopt},
    };
    QTemporaryDir dir;
    for (const auto &[bytes, count] : documents) {
        const QString path = writeTestFile(dir.filePath(QStringLiteral("doc.quillfern")), bytes);
        EXPECT_EQ(LogDocument::dictionaryDocumentLineCount(path), count) << bytes.left(80).constData();
    }
    EXPECT_FALSE(LogDocument::dictionaryDocumentLineCount(dir.filePath("none.quillfern")).has_value());
}

TEST(LogDocumentTest, WriteTextFileAndReadItBack)
{
    QTemporaryDir dir;
    const QList<LogEntry> entries{LogEntry::create(0, {"01-23 14:05:06.789", "app", "1", "-", "I", "T", " é", ""})};
    QString error;
    ASSERT_TRUE(LogDocument::writeTextFile(dir.filePath("out.log"), entries, &error)) << error.toStdString();
    EXPECT_FALSE(LogDocument::writeTextFile(dir.filePath("no/such/folder/out.log"), entries, &error));
    EXPECT_FALSE(error.isEmpty());
    QFile f(dir.filePath("out.log"));
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), QByteArray("01-23 14:05:06.789 app(1) - I T:  \xc3\xa9\n"));
}

TEST(LogDocumentTest, DevicesAndPipesAreRefusedWithoutReading)
{
    // A device never ends and a pipe without a writer blocks the open: neither may be read.
    QTemporaryDir dir;
    const QString fifo = dir.filePath("pipe.log");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QString &path : {QStringLiteral("/dev/zero"), QStringLiteral("/dev/urandom"), fifo}) {
        LogIndexCounter counter;
        // Run apart so that a regression fails here instead of hanging the whole test program.
        auto result = std::async(std::launch::async, [&] { return LogDocument::readTextFile(path, counter); });
        if (result.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
            ADD_FAILURE() << "reading blocked: " << path.toStdString();
            if (path == fifo) // give the blocked open a writer that leaves at once
                ::close(::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK));
        }
        const LogFileResult r = result.get();
        EXPECT_FALSE(r.ok) << path.toStdString();
        EXPECT_TRUE(r.errorString.contains(path)) << r.errorString.toStdString();
        EXPECT_FALSE(LogDocument::dictionaryDocumentLineCount(path).has_value());
    }
}
