// SPDX-License-Identifier: MIT
#include "Log/LogLineParser.h"
#include "Log/LogLineScanner.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

namespace {

LogEntry parse(const QString &line, int format)
{
    LogIndexCounter counter;
    return LogLineParser::parseThreadTimeLine(QStringView(line), format, counter);
}

const QString kThreadTime = QStringLiteral("01-23 14:05:06.789  1234  1234 I ActivityManager: Start proc");

} // namespace

TEST(LogLineScannerTest, SkipsUnicodeSpaceBeforeAReadButNotInsideIt)
{
    const QByteArray line = "\xc2\xa0\xe3\x80\x80 x\ty z"; // NBSP, ideographic space, blank
    LogLineScanner s(line);
    LogLineScanner::Slice r;
    ASSERT_TRUE(s.scanUpTo(" ", &r));
    EXPECT_EQ(line.sliced(r.begin, r.size), "x\ty");
    EXPECT_EQ(LogLineScanner::whitespaceLength("\xe2\x80\xa8", 0), 3) << "line separator";
    EXPECT_EQ(LogLineScanner::whitespaceLength("\xc3\xa9", 0), 0);
    EXPECT_EQ(LogLineScanner::whitespaceLength("\xe3\x80", 0), 0) << "truncated sequence";
}

TEST(LogLineParserTest, EachFormatsFields)
{
    // Fields as "time|app|pid|tid|type|name|text|note"; null: the line yields no entry.
    const std::tuple<QString, int, const char *> cases[] = {
        {kThreadTime, LogLineFormatThreadTime, "01-23 14:05:06.789||1234|-|I|ActivityManager| Start proc|"},
        {"01-23 14:05:06.789  1234  5678 I AM: x", LogLineFormatThreadTime, "01-23 14:05:06.789||1234|5678|I|AM| x|"},
        {"01-23 14:05:06.789 1 2 W : msg", LogLineFormatThreadTime, "01-23 14:05:06.789||1|2|W|| msg|"},
        {"01-23   14:05:06.789 1 2 V Tag : x\r", LogLineFormatThreadTime, "01-23 14:05:06.789||1|2|V|Tag | x\r|"},
        {"--------- beginning of main", LogLineFormatStream, "||||||--------- beginning of main|"},
        {"01-23 14:05:06.789 com.example(1234) 5678 W Tag: hi NOTE:[checked", LogLineFormatThreadTimeApp,
         "01-23 14:05:06.789|com.example|1234|5678|W|Tag| hi|checked"},
        {"01-23 14:05:06.789 com.example(1234 5678 W Tag: hi", LogLineFormatThreadTimeApp,
         "01-23 14:05:06.789||com.example(1234|5678|W|Tag| hi|"},
        {"01-23 14:05:06.789 (1234) 1234 W Tag: a NOTE:[b NOTE:[c", LogLineFormatThreadTimeApp,
         "01-23 14:05:06.789||1234|-|W|Tag| a|b"},
        {"D/Tag( 1234): hello", LogLineFormatBrief, "||1234||D|Tag| hello|"},
        {"D/Tag 1234: hello", LogLineFormatBrief, nullptr},
        {"D/Tag(1234) hello", LogLineFormatBrief, nullptr},
        {"01-23 14:05:06.789 E/Tag(  42): boom", LogLineFormatTime, "01-23 14:05:06.789||42||E|Tag| boom|"},
        {"01-23 14:05:06.789: W/ab**com.x**cd(7): m", LogLineFormatTimeColon, "01-23 14:05:06.789|com.x|7||W|abcd| m|"},
        {"01-23 14:05:06.789: W/ab**x**c(7): m", LogLineFormatTimeColon, "01-23 14:05:06.789|x|7||W|ab| m|"},
        {"01-23 14:05:06.789: W/ab**x(7): m", LogLineFormatTimeColon, "01-23 14:05:06.789||7||W|| m|"},
        {"I( 1234) Hello", LogLineFormatProcess, "||1234||I|| Hello|"},
        {"I/Tag: Hello: x", LogLineFormatTag, "||||I|Tag|Hello: x|"},
        {"I/Tag:Hello", LogLineFormatTag, nullptr},
        {"  raw text", LogLineFormatRaw, "||||||raw text|"},
        {"x", LogLineFormatUnknown, "||||||x|"},
        {"D/T(1): x", 42, "||||||D/T(1): x|"},
    };
    for (const auto &[line, format, fields] : cases) {
        EXPECT_EQ(fieldsOf(parse(line, format)), QString::fromUtf8(fields)) << line.toStdString();
    }
}

TEST(LogLineParserTest, LinesThatYieldNoEntryTakeNoIndex)
{
    LogIndexCounter counter;
    const char *bad[] = {"01-23 14:05:06.789  1234  1234 I Tag:",
                         "01-23 14:05:06.789  1234  1234 I Tag",
                         "01-23 14:05:06.789  1234",
                         "01-23",
                         "",
                         "   "};
    for (const char *line : bad)
        EXPECT_TRUE(LogLineParser::parseThreadTimeLine(QByteArrayView(line), LogLineFormatStream, counter).isNull())
            << line;
    EXPECT_EQ(counter.peek(), 0u);
    const LogEntry ok = LogLineParser::parseThreadTimeLine(QByteArrayView("01-23 1:2 3 4 D T: x"), 1, counter);
    EXPECT_EQ(ok.idx(), 0u);
    EXPECT_EQ(LogLineParser::parseThreadTimeLine(QByteArrayView("01-23 1:2 3 4 D T: y"), 1, counter).idx(), 1u);
}

TEST(LogLineParserTest, NoteSplitAgreesWithAPlainSearchOnNearMisses)
{
    // Texts made of pieces of the separator: the note starts after the first " NOTE:[" and runs to
    // the next one, exactly as a plain substring search says.
    const QStringList pieces{QStringLiteral(" NOTE:["), QStringLiteral("NOTE:["), QStringLiteral(" NOTE:"),
                             QStringLiteral(" NOT"),    QStringLiteral("N"),      QStringLiteral(" "),
                             QStringLiteral("x"),       QStringLiteral(":["),     QStringLiteral("\u00e9")};
    QRandomGenerator rng(77);
    const QString sep = QStringLiteral(" NOTE:[");
    for (int round = 0; round < 3000; ++round) {
        QString text = QStringLiteral("m");
        for (int n = int(rng.bounded(8)); n > 0; --n)
            text += pieces[int(rng.bounded(int(pieces.size())))];
        const LogEntry e = parse(QStringLiteral("01-23 14:05:06.789 1 2 W Tag:") + text, LogLineFormatThreadTime);
        ASSERT_FALSE(e.isNull());
        ASSERT_EQ(e.value(LogEntry::Text), text.section(sep, 0, 0)) << text.toStdString();
        ASSERT_EQ(e.value(LogEntry::Note), text.section(sep, 1, 1)) << text.toStdString();
    }
}

TEST(LogLineParserTest, LongFormatJoinedAndParsed)
{
    const QList<QByteArrayView> lines{"[ 01-23 14:05:06.789  1234: 5678 D/Tag ]",
                                      "hello",
                                      "",
                                      "garbage",
                                      "[ 01-23 14:05:06.790  1234: 1234 I/Other ]",
                                      "",
                                      "world",
                                      "",
                                      "[ lost header ]"};
    const QList<QByteArray> joined = LogLineParser::joinLongFormatArray(lines);
    ASSERT_EQ(joined.size(), 3);
    EXPECT_EQ(joined[0], "[ 01-23 14:05:06.789  1234: 5678 D/Tag ]hello");
    EXPECT_EQ(fieldsOf(parse(QString::fromUtf8(joined[0]), LogLineFormatLong)),
              "01-23 14:05:06.789||1234|5678|D|Tag |hello|");
    // A further line of the message keeps the header's fields.
    EXPECT_EQ(fieldsOf(parse(QString::fromUtf8(joined[1]), LogLineFormatLong)),
              "01-23 14:05:06.789||1234|5678|D|Tag |garbage|");
    EXPECT_EQ(fieldsOf(parse(QString::fromUtf8(joined[2]), LogLineFormatLong)),
              "01-23 14:05:06.790||1234|-|I|Other |world|");
    // The first line after a header is its message even when it looks like one.
    EXPECT_EQ(LogLineParser::joinLongFormatArray(QList<QByteArrayView>{"[ h ]", "[ x ]", "[ y ]", "z"}),
              (QList<QByteArray>{"[ h ][ x ]", "[ y ]z"}));
}

TEST(LogLineParserTest, DetectionAgreementCounting)
{
    EXPECT_EQ(LogLineParser::determineLogType(QStringList{}), LogLineFormatUnknown);
    EXPECT_EQ(LogLineParser::determineLogType(QStringList(5, kThreadTime)), LogLineFormatThreadTime);
    EXPECT_EQ(LogLineParser::determineLogType(QStringList(4, kThreadTime)), LogLineFormatThreadTime);
    EXPECT_EQ(LogLineParser::determineLogType(QStringList{"-----", "x", ""}), LogLineFormatUnknown);
    // Alternating formats: the 31st classified line decides.
    QStringList alternating;
    for (int i = 0; i < 40; ++i)
        alternating << (i % 2 ? QStringLiteral("D/Tag( 1): x") : QStringLiteral("I/Tag: x"));
    EXPECT_EQ(LogLineParser::determineLogType(alternating), LogLineFormatTag);
    alternating.removeFirst();
    EXPECT_EQ(LogLineParser::determineLogType(alternating), LogLineFormatBrief);
    // After a change the new class needs six agreeing lines: five brief lines after it are not enough.
    QStringList changed{"I/T: a", "I/T: a", "D/T( 1): b", "D/T( 1): b", "D/T( 1): b", "D/T( 1): b", "D/T( 1): b"};
    EXPECT_EQ(LogLineParser::determineLogType(changed), LogLineFormatBrief); // through the end-of-lines path
    EXPECT_EQ(LogLineParser::determineLogType(QStringList{"01-23 14:05:06.789 app(1) 2 I T: x"}),
              LogLineFormatThreadTimeApp);
    // The two lines after a long-format header are not classified.
    EXPECT_EQ(
        LogLineParser::determineLogType(QStringList{"[ 01-23 14:05:06.789  1: 2 D/T ]", "I/Tag: x", "D/Tag( 1): x"}),
        LogLineFormatLong);
}

TEST(LogLineParserTest, ClassifyEachRule)
{
    const std::pair<const char *, int> cases[] = {
        {"D/Tag( 1): x", LogLineFormatBrief},
        {"D/Tag: x", LogLineFormatTag},
        {"D(  1) x", LogLineFormatProcess},
        {"01-23 14:05:06.789: D/T(1): x", LogLineFormatTimeColon},
        {"01-23 14:05:06.789 D/T(1): x", LogLineFormatTime},
        {"01-23 14:05:06.789  1  2 D T: x", LogLineFormatThreadTime},
        {"hello world", LogLineFormatRaw},
        {"\xc3\xa9/T: x", LogLineFormatTag}, // positions count UTF-16 units, not bytes
    };
    for (const auto &[line, format] : cases)
        EXPECT_EQ(LogLineParser::classifyLine(line), format) << line;
}

TEST(LogLineParserTest, SystemMessageUsesTheWeekBasedYear)
{
    LogIndexCounter counter;
    counter.reserve(5);
    const QDateTime monday(QDate(2024, 12, 30), QTime(8, 9, 10, 11));
    const LogEntry e = LogLineParser::makeSystemMessage(QStringLiteral("Disconnected"), counter, monday);
    EXPECT_EQ(fieldsOf(e), "2025-12-30 08:09:10.011|Quillfern|---|---|QF|---|Disconnected|");
    EXPECT_EQ(e.idx(), 5u);
    EXPECT_EQ(LogLineParser::weekYearTimestamp(QDateTime(QDate(2021, 1, 1), QTime(0, 0))), "2020-01-01 00:00:00.000");
}
