// SPDX-License-Identifier: MIT
#include "Filters/Filter.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

using namespace Qt::StringLiterals;

#include <thread>

namespace {

bool passes(const QString &filterText, const LogEntry &e)
{
    const Filter f = Filter::parse(filterText);
    EXPECT_TRUE(f.isValid()) << filterText.toStdString() << ": " << f.errorString().toStdString();
    QString error;
    const bool r = f.matches(e, &error);
    EXPECT_TRUE(error.isEmpty()) << filterText.toStdString() << ": " << error.toStdString();
    return r;
}

QString printed(const QString &text)
{
    const Filter f = Filter::parse(text);
    EXPECT_TRUE(f.isValid()) << text.toStdString() << ": " << f.errorString().toStdString();
    return f.toString();
}

} // namespace

TEST(FilterParse, PrintedFormShowsTheTree)
{
    // Canonical quotes and options; an AND under an OR and a group are parenthesised, a chain is one node;
    // a backslash takes the next character; aliases, keyword case and signed numbers.
    const std::pair<const char *, const char *> cases[] = {
        {"type IN[cd] 'V,D,I,W,E,F,A'", "type IN[cd] \"V,D,I,W,E,F,A\""},
        {"note !=[cd] ''", "note !=[cd] \"\""},
        {"(text CONTAINS[cd] '{' AND text CONTAINS[cd] '\"') OR (text CONTAINS[cd] '[')",
         "(text CONTAINS[cd] \"{\" AND text CONTAINS[cd] \"\\\"\") OR text CONTAINS[cd] \"[\""},
        {"(app ==[cd] 'YOUR_APP_NAME') AND ((type ==[cd] 'E') OR (type ==[cd] 'W'))",
         "app ==[cd] \"YOUR_APP_NAME\" AND (type ==[cd] \"E\" OR type ==[cd] \"W\")"},
        {R"(text == 'it\'s')", R"(text == "it's")"},
        {R"(text == "a\"b\\c\n")", R"(text == "a\"b\\cn")"},
        {R"(text == "it's" OR text == 'say "hi"')", R"(text == "it's" OR text == "say \"hi\"")"},
        {"a == '1' OR b == '2' AND c == '3'", "a == \"1\" OR (b == \"2\" AND c == \"3\")"},
        {"NOT a == '1' AND b == '2'", "NOT a == \"1\" AND b == \"2\""},
        {"NOT (a == '1' OR b == '2')", "NOT (a == \"1\" OR b == \"2\")"},
        {"NOT NOT a == '1'", "NOT NOT a == \"1\""},
        {"a == '1' AND b == '2' AND c == '3'", "a == \"1\" AND b == \"2\" AND c == \"3\""},
        {"(a == '1' AND b == '2') AND c == '3'", "(a == \"1\" AND b == \"2\") AND c == \"3\""},
        {"((text == 'x'))", "text == \"x\""}, // redundant parentheses around one comparison vanish
        {"a = '1' && b <> '2' || !c == '3'", "(a == \"1\" AND b != \"2\") OR NOT c == \"3\""},
        {"text contains[c] 'x' and not name beginswith 'y'", "text CONTAINS[c] \"x\" AND NOT name BEGINSWITH \"y\""},
        {"text ENDSWITH [dc] 'x'", "text ENDSWITH[cd] \"x\""},
        {"text LIKE[d] '*x?'", "text LIKE[d] \"*x?\""},
        {"text MATCHES '^a.c$'", "text MATCHES \"^a.c$\""},
        {"idx >= 5 AND idx < -1 OR idx =< +3", "(idx >= 5 AND idx < -1) OR idx <= 3"},
        {"note IN 'x'", "note IN \"x\""}, // "note" and "index" are keys, not the keywords NOT and IN
    };
    for (const auto &[text, print] : cases)
        EXPECT_EQ(printed(text), print);
    EXPECT_EQ(Filter::parse("idx == 42").number(), 42);
    EXPECT_NE(Filter::parse("idx == 42"), Filter::parse("idx == '42'")); // text and number constants differ
    EXPECT_NE(Filter::parse("(a == '1' AND b == '2') AND c == '3'"),
              Filter::parse("a == '1' AND b == '2' AND c == '3'"));
}

TEST(FilterParse, ErrorsSayWhereAndWhy)
{
    const std::tuple<const char *, qsizetype, const char *> cases[] = {
        {"", 0, "Expected a filter expression"},
        {"   ", 3, "Expected a filter expression"},
        {"text CONTAIN 'x'", 5, "Expected an operator after \"text\""},
        {"text == 'abc", 8, "not closed"},
        {"text == 'abc\\", 8, "not closed"},
        {"(text == 'a'", 12, "Expected \")\""},
        {"text == 'a')", 11, "Unexpected \")\""},
        {"text ==[x] 'a'", 8, "Unknown option"},
        {"text ==[] 'a'", 7, "Empty options"},
        {"text ==[c", 9, "Expected \"]\""},
        {"text ==[c 'a'", 9, "Unknown option"},
        {"text == 'a' foo", 12, "Expected AND, OR or the end"},
        {"text == 'a' AND", 15, "Expected a key"},
        {"AND text == 'a'", 0, "Expected a key before"},
        {"text == x", 8, "Expected a quoted text or a number"},
        {"text ==", 7, "found the end of the text"},
        {"'x' == text", 0, "Expected a key"},
        {"text MATCHES '('", 13, "Invalid regular expression"},
        {"idx == 99999999999999999999", 7, "out of range"},
    };
    for (const auto &[text, offset, why] : cases) {
        SCOPED_TRACE(text);
        const Filter f = Filter::parse(QString::fromUtf8(text));
        EXPECT_FALSE(f.isValid() || f.isNull());
        EXPECT_EQ(f.errorOffset(), offset);
        const QString error = f.errorString();
        EXPECT_TRUE(error.contains(QString::fromUtf8(why)) && error.endsWith(QString("at position %1").arg(offset + 1)))
            << error.toStdString();
        EXPECT_EQ(f.toString(), QString());
    }
}

TEST(FilterParse, DeepNestingIsRefusedNotACrash)
{
    // Parentheses, NOTs, "!"s, and alternating NOT and parentheses, opened and never closed, or closed.
    QString nots, mixed;
    for (int i = 0; i < 10000; ++i) {
        nots += QStringLiteral("NOT ");
        mixed += (i % 2) ? QStringLiteral("NOT ") : QStringLiteral("(");
    }
    const QString parens = QString(10000, u'(') + "text == 'x'" + QString(10000, u')');
    EXPECT_EQ(Filter::parse(parens).errorOffset(), Filter::MaxDepth);
    for (const QString &text : {parens, nots + "text == 'x'", QString(10000, u'!') + "text == 'x'", mixed,
                                mixed + "text == 'x'" + QString(5000, u')')})
        EXPECT_TRUE(Filter::parse(text).errorString().contains("nested deeper")) << text.left(12).toStdString();

    // Up to the limit parses, evaluates and prints back.
    const int depth = Filter::MaxDepth;
    EXPECT_FALSE(Filter::parse(QString(depth, u'(') + "NOT text == 'x'" + QString(depth, u')')).isValid()); // one more
    const Filter okay = Filter::parse(QString(depth, u'(') + "text == 'x'" + QString(depth, u')'));
    EXPECT_TRUE(okay.isValid()) << okay.errorString().toStdString();

    // A long flat chain is not deep.
    QStringList parts;
    for (int i = 0; i < 10000; ++i)
        parts << QStringLiteral("text CONTAINS '%1'").arg(i);
    const Filter chain = Filter::parse(parts.join(" OR "));
    ASSERT_TRUE(chain.isValid());
    EXPECT_EQ(chain.parts().size(), 10000);
    EXPECT_TRUE(chain.matches(testEntry({.text = "x 9999 y"})));
}

TEST(FilterEval, OperatorsAndOptions)
{
    const LogEntry cafe = testEntry({.text = QStringLiteral("Un Café noir")});
    const LogEntry proc =
        testEntry({.idx = 15, .name = "ActivityManager", .text = "Start proc 1234:com.example/u0a12"});
    const LogEntry kelvin = testEntry({.name = QStringLiteral("\u212A")}); // folds to ASCII "k"
    const LogEntry noType = testEntry({.type = "", .text = "abc"});
    const std::tuple<const char *, LogEntry, bool> cases[] = {
        // The level and note filters.
        {"type IN[cd] 'W,E,F,A'", testEntry({.type = "e"}), true},
        {"type IN[cd] 'W,E,F,A'", testEntry({.type = "A"}), true},
        {"type IN[cd] 'W,E,F,A'", testEntry({.type = ""}), false},
        {"type IN[cd] 'W,E,F,A'", testEntry({.type = "QF"}), false},
        {"type IN[c] 'w,e'", testEntry({.type = "W"}), true},
        {"type IN 'w,e'", testEntry({.type = "W"}), false},
        {"note !=[cd] ''", testEntry({.note = "checked"}), true},
        {"note !=[cd] ''", testEntry({}), false},
        // [c] and [d] each fold only their own difference, on both sides; decomposed equals precomposed.
        {"text CONTAINS[cd] 'cafe'", cafe, true},
        {"text CONTAINS[d] 'cafe'", cafe, false},
        {"text CONTAINS[d] 'Cafe'", cafe, true},
        {"text CONTAINS[c] 'cafe'", cafe, false},
        {"text CONTAINS[c] 'CAFÉ'", cafe, true},
        {"text CONTAINS 'café'", cafe, false},
        {"text ==[d] 'Un Cafe\u0301 noir'", cafe, true},
        {"text ==[cd] 'ÙN CÀFÈ NÔIR'", cafe, true},
        {"text MATCHES[d] 'Un Cafe.*'", cafe, true},
        {"name ==[c] 'ÄRGER'", testEntry({.name = QStringLiteral("ärger")}), true},
        {"name ==[c] 'k'", kelvin, true},
        {"name == 'k'", kelvin, false},
        // A constant without letters under [c]: punctuation still matches exactly.
        {"text CONTAINS[c] '{'", testEntry({.text = "a{b"}), true},
        {"text CONTAINS[c] '['", testEntry({.text = "a{b"}), false},
        // Ordering compares the texts ("B" sorts before "_"); [c] on ASCII is the random oracle's, below.
        {"name < '_'", testEntry({.name = "B"}), true},
        // Empty texts occur in nothing; a constant of combining marks only is empty under [d].
        {"text CONTAINS ''", noType, false},
        {"text BEGINSWITH ''", noType, false},
        {"text ENDSWITH ''", noType, false},
        {"text CONTAINS[d] '\u0301'", noType, false},
        {"type IN 'E,F'", noType, false},
        {"type == ''", noType, true},
        {"type != ''", noType, false},
        // Prefixes, suffixes, wildcards (whole text, the dot literal) and anchored expressions.
        {"name BEGINSWITH 'Activity'", proc, true},
        {"name BEGINSWITH 'activity'", proc, false},
        {"text LIKE 'Start*example/u0a1?'", proc, true},
        {"text LIKE 'Start*example/u0a1'", proc, false},
        {"text LIKE 'start*'", proc, false},
        {"text LIKE '*.*'", proc, true},
        {"name LIKE 'Activity.anager'", proc, false},
        {"text MATCHES 'Start proc \\\\d+:.*'", proc, true},
        {"text MATCHES 'proc'", proc, false},
        {"text MATCHES[c] 'START.*'", proc, true},
        {"time >= '01-23 14:00' AND time < '01-23 15'", proc, true},
        // Numbers.
        {"idx == 15", proc, true},
        {"idx > 3 AND idx <= 15 AND idx != 16 AND idx > -4", proc, true},
        {"idx < 15", proc, false},
        // A key that entries lack is false for every operator, without an error.
        {"foo == 'x'", proc, false},
        {"foo != 'x'", proc, false},
        {"foo CONTAINS 'x'", proc, false},
        {"NOT foo != 'x'", proc, true},
    };
    for (const auto &[filter, entry, expected] : cases)
        EXPECT_EQ(passes(QString::fromUtf8(filter), entry), expected) << filter;
}

TEST(FilterEval, AsciiCaseFoldingAgreesWithLowerCasedComparison)
{
    // Oracle: for ASCII text, [c] equals comparing lower-cased texts without options, [d] changes nothing.
    QRandomGenerator rng(20240117);
    const QString alphabet = QStringLiteral("aAbBzZ{}[],:\"_ 09");
    auto randomText = [&](int maxLen) {
        QString s;
        const int len = int(rng.bounded(maxLen + 1));
        for (int i = 0; i < len; ++i)
            s += alphabet.at(int(rng.bounded(int(alphabet.size()))));
        return s;
    };
    const Filter::Operator ops[] = {
        Filter::Operator::Equal, Filter::Operator::NotEqual,       Filter::Operator::Contains,
        Filter::Operator::In,    Filter::Operator::BeginsWith,     Filter::Operator::EndsWith,
        Filter::Operator::Less,  Filter::Operator::GreaterOrEqual, Filter::Operator::Like};
    for (int i = 0; i < 3000; ++i) {
        const QString value = randomText(8);
        const QString constant = randomText(3);
        const Filter::Operator op = ops[rng.bounded(int(std::size(ops)))];
        const int opts = int(rng.bounded(1, 4));
        const Filter folded = Filter::comparison("text", op, opts, constant);
        const Filter oracle = Filter::comparison("text", op, Filter::NoOptions,
                                                 (opts & Filter::CaseInsensitive) ? constant.toLower() : constant);
        const QString oracleValue = (opts & Filter::CaseInsensitive) ? value.toLower() : value;
        ASSERT_EQ(folded.matches(testEntry({.text = value})), oracle.matches(testEntry({.text = oracleValue})))
            << folded.toString().toStdString() << " on " << value.toStdString();
    }
}

TEST(FilterEval, OneCharacterInTestOnStoredBytesAgreesWithTheTextPath)
{
    // IN on a one-character stored field is decided from its byte; "app" written later takes the
    // general text path. Both must agree for every character, constant and option.
    for (const QString &constant :
         {u"W,E,F,A"_s, u"w,e"_s, u"\u00c4bC"_s, u"1,2,+"_s, u"\u212a"_s, u"\u017f"_s, QString()}) {
        for (int opts = 0; opts < 4; ++opts) {
            const Filter onType = Filter::comparison("type", Filter::Operator::In, opts, constant);
            const Filter onApp = Filter::comparison("app", Filter::Operator::In, opts, constant);
            for (char c = 32; c < 127; ++c) {
                const QString value(QChar::fromLatin1(c));
                const LogEntry typed = testEntry({.type = value});
                const LogEntry named = testEntry({});
                named.setApp(value);
                ASSERT_EQ(onType.matches(typed), onApp.matches(named))
                    << onType.toString().toStdString() << " on " << c;
            }
        }
    }
}

TEST(FilterEval, EvaluationErrors)
{
    const LogEntry e = testEntry({.idx = 15, .type = "E", .text = "t"});
    const std::pair<const char *, const char *> cases[] = {
        {"idx CONTAINS[cd] '1'", "CONTAINS needs text, but \"idx\" holds a number"},
        {"idx IN '15,16'", "IN needs text"},
        {"idx == '15'", "Cannot compare the number under \"idx\" with the text \"15\""},
        {"pid == 1234", "Cannot compare the text of \"pid\" with the number 1234"},
        {"idx MATCHES 5", "MATCHES needs text"},
    };
    for (const auto &[filter, why] : cases) {
        const Filter::Result r = Filter::parse(filter).evaluate(e);
        EXPECT_FALSE(r.ok() || r.matched) << filter;
        EXPECT_TRUE(r.error.contains(why)) << r.error.toStdString();
    }

    // Errors pass through NOT; short-circuit decides whether the failing part is reached.
    const auto outcome = [](const char *filter, const LogEntry &entry) {
        const Filter::Result r = Filter::parse(filter).evaluate(entry);
        return r.ok() ? (r.matched ? "match" : "no match") : "error";
    };
    EXPECT_STREQ(outcome("NOT idx CONTAINS '1'", e), "error");
    EXPECT_STREQ(outcome("type == 'E' OR idx CONTAINS '1'", e), "match");
    EXPECT_STREQ(outcome("type == 'E' OR idx CONTAINS '1'", testEntry({})), "error");
    EXPECT_STREQ(outcome("type == 'X' AND idx CONTAINS '1'", e), "no match");
    EXPECT_STREQ(outcome("type == 'E' AND idx CONTAINS '1'", e), "error");

    // A null or broken filter reports rather than matches.
    EXPECT_FALSE(Filter().evaluate(e).ok());
    const Filter broken = Filter::parse("text ==");
    EXPECT_EQ(broken.evaluate(e).error, broken.errorString());
}

TEST(FilterEval, AppAndNoteWrittenLaterAreSeen)
{
    const LogEntry e = testEntry({.text = "x"});
    const Filter f = Filter::parse("app ==[cd] 'com.example' AND note CONTAINS 'seen'");
    EXPECT_FALSE(f.matches(e));
    e.setApp("com.Example");
    e.setNote("was seen");
    EXPECT_TRUE(f.matches(e));
}

TEST(FilterEntries, KeepsOrderOnTwoThreadsAndReportsErrors)
{
    QVector<LogEntry> entries;
    for (int i = 0; i < 30000; ++i)
        entries << testEntry(
            {.idx = quint64(i), .type = i % 7 == 0 ? "E" : "D", .text = QStringLiteral("line %1").arg(i)});
    const Filter f = Filter::parse("type IN[cd] 'E,F,A'");
    QString error;
    const QVector<LogEntry> passed = filterEntries(entries, f, &error);
    EXPECT_EQ(error, QString());
    ASSERT_EQ(passed.size(), (30000 + 6) / 7);
    for (qsizetype i = 0; i < passed.size(); ++i)
        ASSERT_EQ(passed.at(i).idx(), quint64(i * 7));

    EXPECT_EQ(filterEntries(entries.mid(0, 100), f, &error).size(), 15); // below the two-thread threshold

    // An error in the second half only: nothing is returned, the error is.
    const Filter late = Filter::parse("idx < 20000 OR text CONTAINS 'line' AND idx CONTAINS '1'");
    EXPECT_TRUE(filterEntries(entries, late, &error).isEmpty());
    EXPECT_TRUE(error.contains("CONTAINS needs text"));

    error.clear();
    EXPECT_TRUE(filterEntries(entries, Filter(), &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
}

TEST(FilterEntries, OneFilterSharedByManyThreads)
{
    const Filter f = Filter::parse("text MATCHES[c] '.*n[aeiou]+.*' AND text LIKE[cd] '*é*' OR name ==[cd] 'TAG'");
    ASSERT_TRUE(f.isValid());
    QVector<LogEntry> entries;
    for (int i = 0; i < 2000; ++i)
        entries << testEntry({.name = i % 5 ? "x" : "tag",
                              .text = i % 3 ? QStringLiteral("Ånother néw line %1").arg(i) : QStringLiteral("plain")});
    QVector<bool> expected;
    for (const LogEntry &e : entries)
        expected << f.matches(e);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            FilterEvaluator ev(f);
            for (qsizetype i = 0; i < entries.size(); ++i)
                if (ev.matches(entries.at(i)) != expected.at(i) || f.matches(entries.at(i)) != expected.at(i))
                    ++mismatches;
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(mismatches.load(), 0);
}
