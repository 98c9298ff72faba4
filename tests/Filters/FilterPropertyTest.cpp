// SPDX-License-Identifier: MIT
// Seeded properties of the filter language: print/parse round trips of random trees, and random input to
// the parser, tokens or bytes (no crash, no hang, an error with a position or a filter that round-trips).
#include "Filters/Filter.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <QRegularExpression>

namespace {

const QStringList Keys = {"idx", "time", "app", "pid", "tid", "type", "name", "text", "note", "foo", "x_1"};

const Filter::Operator TextOperators[] = {
    Filter::Operator::Equal,       Filter::Operator::NotEqual, Filter::Operator::Less,
    Filter::Operator::LessOrEqual, Filter::Operator::Greater,  Filter::Operator::GreaterOrEqual,
    Filter::Operator::Contains,    Filter::Operator::In,       Filter::Operator::BeginsWith,
    Filter::Operator::EndsWith,    Filter::Operator::Like,     Filter::Operator::Matches};

QString randomConstant(QRandomGenerator &rng, bool allowSurrogates = true)
{
    static const QString pool = QStringLiteral("aZ09 '\"\\()[]{}*?.,:;!=<>ANDORNOT\t\néÅ\u0301ß\u212A");
    QString s;
    const int len = int(rng.bounded(7));
    for (int i = 0; i < len; ++i)
        s += pool.at(int(rng.bounded(int(pool.size()))));
    if (allowSurrogates && rng.bounded(20) == 0)
        s += QString::fromUcs4(U"\U0001F600");
    return s;
}

Filter randomTree(QRandomGenerator &rng, int depth)
{
    const int pick = depth <= 0 ? 0 : int(rng.bounded(5));
    if (pick <= 1) {
        const QString key = Keys.at(int(rng.bounded(int(Keys.size()))));
        const Filter::Operator op = TextOperators[rng.bounded(int(std::size(TextOperators)))];
        const int options = int(rng.bounded(4));
        if (rng.bounded(6) == 0 && op <= Filter::Operator::GreaterOrEqual)
            return Filter::comparison(key, op, options, qint64(rng.bounded(-1000, 100000)));
        QString constant = randomConstant(rng, op != Filter::Operator::Matches);
        if (op == Filter::Operator::Matches) // always a valid expression
            constant = QRegularExpression::escape(constant);
        return Filter::comparison(key, op, options, constant);
    }
    if (pick == 2)
        return Filter::notOf(randomTree(rng, depth - 1));
    QList<Filter> parts;
    const int n = int(rng.bounded(2, 5));
    for (int i = 0; i < n; ++i)
        parts << randomTree(rng, depth - 1);
    return pick == 3 ? Filter::andOf(parts) : Filter::orOf(parts);
}

LogEntry randomEntry(QRandomGenerator &rng, quint64 idx)
{
    std::array<QString, LogEntry::FieldCount - 1> fields;
    for (QString &f : fields)
        f = randomConstant(rng);
    return LogEntry::create(idx, fields);
}

} // namespace

TEST(FilterProperty, PrintThenParseGivesTheSameTree)
{
    QRandomGenerator rng(0xF117E5);
    for (int i = 0; i < 3000; ++i) {
        const Filter f = randomTree(rng, int(rng.bounded(6)));
        ASSERT_TRUE(f.isValid()) << f.errorString().toStdString();
        const QString text = f.toString();
        const Filter back = Filter::parse(text);
        ASSERT_TRUE(back.isValid()) << text.toStdString() << " -> " << back.errorString().toStdString();
        ASSERT_EQ(back, f) << text.toStdString();
        ASSERT_EQ(back.toString(), text);
        // Equal trees decide equally, errors included.
        const LogEntry e = randomEntry(rng, rng.bounded(100u));
        const Filter::Result a = f.evaluate(e);
        const Filter::Result b = back.evaluate(e);
        ASSERT_EQ(a.matched, b.matched);
        ASSERT_EQ(a.error, b.error);
    }
}

TEST(FilterProperty, RandomTextNeverCrashesAndErrorsCarryAPosition)
{
    QRandomGenerator rng(424242);
    const QStringList tokens = {
        "text",    "type",       "idx",  "note", " ", "  ", "==", "=", "!=",  "<",     ">=",  "CONTAINS", "IN", "LIKE",
        "MATCHES", "BEGINSWITH", "[cd]", "[c]",  "[", "]",  "(",  ")", "'a'", "\"b\"", "'",   "\"",       "\\", "AND",
        "OR",      "NOT",        "&&",   "||",   "!", "42", "-7", "é", "\n",  "'.*'",  "'('", "x"};
    int valid = 0;
    for (int i = 0; i < 20000; ++i) {
        QString text;
        if (i % 10 == 0) { // any bytes at all, as a file or a paste may hold
            QByteArray bytes(int(rng.bounded(200)), Qt::Uninitialized);
            for (char &b : bytes)
                b = char(rng.bounded(256));
            text = QString::fromUtf8(bytes);
        } else if (i % 2) {
            // A valid text with a few random edits: most of the language's near misses.
            text = randomTree(rng, int(rng.bounded(4))).toString();
            const int edits = int(rng.bounded(3));
            for (int e = 0; e < edits && !text.isEmpty(); ++e) {
                const qsizetype at = rng.bounded(int(text.size()));
                const QString token = tokens.at(int(rng.bounded(int(tokens.size()))));
                if (rng.bounded(2))
                    text.insert(at, token);
                else
                    text.remove(at, rng.bounded(1, 4));
            }
        } else {
            const int n = int(rng.bounded(1, 14));
            for (int t = 0; t < n; ++t) {
                if (rng.bounded(8) == 0)
                    text += QChar(char16_t(rng.bounded(1, 0xD7FF)));
                else
                    text += tokens.at(int(rng.bounded(int(tokens.size()))));
            }
        }
        const Filter f = Filter::parse(text);
        if (f.isValid()) {
            ++valid;
            const Filter back = Filter::parse(f.toString());
            ASSERT_EQ(back, f) << text.toStdString() << " printed " << f.toString().toStdString();
        } else {
            ASSERT_FALSE(f.errorString().isEmpty()) << text.toStdString();
            ASSERT_GE(f.errorOffset(), 0) << text.toStdString();
            ASSERT_LE(f.errorOffset(), text.size()) << text.toStdString();
        }
    }
    EXPECT_GT(valid, 2000); // the generator reaches the valid part of the language too
}
