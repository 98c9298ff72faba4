// SPDX-License-Identifier: MIT
// The byte parser against a direct UTF-16 rendering of the line rules, on seeded random lines.
#include "Helpers/TextHelpers.h"
#include "Log/LogLineParser.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

#include <optional>

namespace {

using Fields = std::array<QString, 8>; // time, app, pid, tid, type, name, text, note

// The scanner's rule in UTF-16: skip blanks, read up to the delimiter, drop one leading previous delimiter.
struct RefScanner
{
    QString s;
    qsizetype pos = 0;
    QString previous;

    std::optional<QString> upTo(const QString &delimiter)
    {
        while (pos < s.size() && s[pos].isSpace())
            ++pos;
        const qsizetype end = s.indexOf(delimiter, pos) < 0 ? s.size() : s.indexOf(delimiter, pos);
        QString r = s.mid(pos, end - pos);
        pos = end;
        if (!r.isEmpty() && r.startsWith(previous))
            r.remove(0, previous.size());
        previous = delimiter;
        return r.isEmpty() ? std::nullopt : std::optional(r);
    }
};

// One character off the end (a surrogate pair counts as one character).
QString lastChar(const QString &s)
{
    return s.size() >= 2 && s.back().isLowSurrogate() ? s.right(2) : s.right(1);
}

std::optional<Fields> reference(const QString &line, int format)
{
    Fields f;
    if (line.startsWith(QLatin1Char('-')))
        format = 7;
    RefScanner s{line, 0, {}};
    const auto readTime = [&]() {
        if (format == 10)
            s.upTo(" ");
        const auto date = s.upTo(" ");
        auto time = s.upTo(" ");
        if (!date || !time)
            return false;
        if (format == 4)
            time->chop(lastChar(*time).size());
        f[0] = *date + QLatin1Char(' ') + *time;
        return true;
    };
    switch (format) {
    case 1:
    case 2:
    case 3: {
        if (!readTime())
            return std::nullopt;
        const auto token = s.upTo(" ");
        const auto tid = s.upTo(" ");
        const auto type = s.upTo(" ");
        if (!token || !tid || !type)
            return std::nullopt;
        const qsizetype open = token->indexOf(QLatin1Char('('));
        if (format == 2 && open >= 0 && token->endsWith(QLatin1Char(')'))) {
            f[1] = token->left(open);
            f[2] = token->mid(open + 1, token->size() - open - 2);
        } else {
            f[2] = *token;
            if (format == 1)
                f[1] = QStringLiteral("app of ") + f[2]; // the live format asks for the pid's name
        }
        f[3] = *tid == f[2] ? QStringLiteral("-") : *tid;
        f[4] = *type;
        f[5] = s.upTo(":").value_or(QString());
        break;
    }
    case 4:
    case 5:
    case 9: {
        if (format != 5 && !readTime())
            return std::nullopt;
        const auto type = s.upTo("/");
        const auto name = s.upTo("(");
        const auto pid = s.upTo("):");
        if (!type || !name || !pid)
            return std::nullopt;
        f[4] = *type;
        f[5] = *name;
        if (format == 4) {
            QString app;
            const auto cut = qf::removeSubstringBetween(*name, u"**", u"**", &app);
            f[5] = cut.value_or(QString());
            f[1] = app;
        }
        f[2] = qf::trim(*pid);
        break;
    }
    case 6: {
        const auto type = s.upTo("(");
        const auto pid = s.upTo(")");
        if (!type || !pid)
            return std::nullopt;
        f[4] = *type;
        f[2] = qf::trim(*pid);
        break;
    }
    case 8: {
        const auto type = s.upTo("/");
        const auto name = s.upTo(": ");
        if (!type || !name)
            return std::nullopt;
        f[4] = *type;
        f[5] = *name;
        break;
    }
    case 10: {
        if (!readTime())
            return std::nullopt;
        const auto pid = s.upTo(":");
        const auto part = s.upTo("/");
        const auto name = s.upTo("]");
        if (!pid || !part || !name)
            return std::nullopt;
        f[2] = *pid;
        f[4] = lastChar(*part);
        const QString tid = qf::trim(part->left(part->size() - f[4].size()));
        f[3] = tid == f[2] ? QStringLiteral("-") : tid;
        f[5] = *name;
        break;
    }
    default:
        break;
    }
    auto text = s.upTo("\n");
    if (!text)
        return std::nullopt;
    const QString separator = QStringLiteral(" NOTE:[");
    const qsizetype note = text->indexOf(separator);
    if (note >= 0) {
        f[7] = text->mid(note + separator.size()).section(separator, 0, 0);
        text->truncate(note);
    }
    f[6] = *text;
    return f;
}

QString randomLine(QRandomGenerator &rng)
{
    // Pieces of every format, Unicode blanks and multi-byte characters, separated by '|'.
    static const QStringList pieces =
        QStringLiteral("01-23|14:05:06.789|14:05:06.789:| |  |\t|\u00a0|\u3000|1234|5678|I|D|/|(|)|):|:|: |[|]|-|**|"
                       "é|日志|🚀| NOTE:[|\r|Tag|com.example(1234)|msg|\n|x|a b")
            .split(u'|');
    static const QStringList shapes =
        QStringLiteral("01-23 14:05:06.789  1234  5678 I Tag: msg|01-23 14:05:06.789 com.x(12) 12 W T: m NOTE:[n|"
                       "01-23 14:05:06.789: W/a**app**b( 12): m|D/Tag( 1234): hello|I( 12) hi|I/Tag: hi|"
                       "01-23 14:05:06.789 E/Tag(  42): boom|[ 01-23 14:05:06.789  1234: 5678 D/Tag ]hello")
            .split(u'|');
    QString line;
    if (rng.bounded(2)) {
        line = shapes[rng.bounded(shapes.size())];
        // Mutate a few positions with random pieces.
        const int edits = int(rng.bounded(4));
        for (int e = 0; e < edits && !line.isEmpty(); ++e) {
            const qsizetype at = rng.bounded(int(line.size()));
            if (line[at].isLowSurrogate())
                continue;
            line.insert(at, pieces[rng.bounded(pieces.size())]);
        }
    } else {
        const int n = int(rng.bounded(14));
        for (int i = 0; i < n; ++i)
            line += pieces[rng.bounded(pieces.size())];
    }
    return line;
}

} // namespace

TEST(LogLineParserRandomTest, BytesParserAgreesWithTheUtf16Rules)
{
    QRandomGenerator rng(20240611);
    const LogLineParser::AppLookup lookup = [](const QString &pid) { return QStringLiteral("app of ") + pid; };
    int entries = 0;
    for (int i = 0; i < 20000; ++i) {
        const QString line = randomLine(rng);
        for (int format = 0; format <= 11; ++format) {
            LogIndexCounter counter;
            const LogEntry got = LogLineParser::parseThreadTimeLine(QStringView(line), format, counter, lookup);
            const auto want = reference(line, format);
            ASSERT_EQ(got.isNull(), !want.has_value())
                << "format " << format << " line \"" << line.toStdString() << "\"";
            if (!want)
                continue;
            ++entries;
            for (int f = 0; f < 8; ++f) {
                ASSERT_EQ(got.value(LogEntry::Field(f + 1)), (*want)[size_t(f)])
                    << "format " << format << " field " << f + 1 << " line \"" << line.toStdString() << "\"";
            }
        }
    }
    EXPECT_GT(entries, 20000) << "the generator must produce many parsable lines";
}

TEST(LogLineParserRandomTest, DetectionAndRawBytesNeverFail)
{
    QRandomGenerator rng(99);
    for (int round = 0; round < 300; ++round) {
        QList<QByteArray> storage;
        for (int i = 0; i < 40; ++i) {
            QByteArray b(int(rng.bounded(60)), Qt::Uninitialized);
            for (char &c : b)
                c = char(rng.bounded(256));
            storage << b;
        }
        QList<QByteArrayView> views(storage.begin(), storage.end());
        const int format = LogLineParser::determineLogType(views);
        EXPECT_GE(format, 0);
        EXPECT_LE(format, 10);
        LogIndexCounter counter;
        for (const QByteArray &b : storage) {
            // Invalid UTF-8 goes through the QString path as the datasource would hand it over.
            const LogEntry e = LogLineParser::parseThreadTimeLine(QStringView(QString::fromUtf8(b)), format, counter);
            if (!e.isNull()) {
                EXPECT_FALSE(e.value(LogEntry::Text).isEmpty());
            }
        }
    }
}
