// SPDX-License-Identifier: MIT
#include "Filters/SearchQuery.h"

#include <QHash>
#include <QList>
#include <QRegularExpression>

#include <map>

namespace {

constexpr int CD = Filter::CaseInsensitive | Filter::DiacriticInsensitive;

struct Term
{
    QString key; // entry key
    bool exclude = false;
    char mode = 0; // 0 contains, '~' regex, '=' exact
    QString value;
};

// Android Studio's keys to entry keys; "level" becomes "type", whose plain term termFilter widens to the levels above.
const QHash<QString, QString> &studioKeys()
{
    static const QHash<QString, QString> keys = {
        {QStringLiteral("tag"), QStringLiteral("name")},     {QStringLiteral("package"), QStringLiteral("app")},
        {QStringLiteral("app"), QStringLiteral("app")},      {QStringLiteral("pid"), QStringLiteral("pid")},
        {QStringLiteral("tid"), QStringLiteral("tid")},      {QStringLiteral("message"), QStringLiteral("text")},
        {QStringLiteral("msg"), QStringLiteral("text")},     {QStringLiteral("level"), QStringLiteral("type")},
    };
    return keys;
}

// Splits at blanks outside double quotes; a quote pair is removed, a backslash takes the next character.
QStringList tokens(const QString &text)
{
    QStringList out;
    QString current;
    bool quoted = false, any = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'\\' && quoted && i + 1 < text.size()) {
            current += text[++i];
        } else if (c == u'"') {
            quoted = !quoted;
            any = true;
        } else if (c.isSpace() && !quoted) {
            if (any || !current.isEmpty())
                out << current;
            current.clear();
            any = false;
        } else {
            current += c;
        }
    }
    if (any || !current.isEmpty())
        out << current;
    return out;
}

// "V,D,I,W,E,F,A" from the given level on; empty when it names none.
QString levelsFrom(const QString &value)
{
    static const QString letters = QStringLiteral("VDIWEFA");
    static const QHash<QString, QChar> words = {
        {QStringLiteral("verbose"), u'V'}, {QStringLiteral("debug"), u'D'}, {QStringLiteral("info"), u'I'},
        {QStringLiteral("warn"), u'W'},    {QStringLiteral("warning"), u'W'}, {QStringLiteral("error"), u'E'},
        {QStringLiteral("fatal"), u'F'},   {QStringLiteral("assert"), u'A'},
    };
    const QString v = value.toLower();
    const QChar letter = v.size() == 1 ? v[0].toUpper() : words.value(v);
    const qsizetype from = letter.isNull() ? -1 : letters.indexOf(letter);
    if (from < 0)
        return {};
    QStringList out;
    for (qsizetype i = from; i < letters.size(); ++i)
        out << letters.mid(i, 1);
    return out.join(u',');
}

Filter termFilter(const Term &t, QString *error)
{
    Filter f;
    if (t.key == QLatin1String("type") && t.mode == 0) {
        const QString levels = levelsFrom(t.value);
        if (levels.isEmpty()) {
            *error = QStringLiteral("Unknown level \"%1\": use V, D, I, W, E, F, A or their names").arg(t.value);
            return {};
        }
        f = Filter::comparison(t.key, Filter::Operator::In, CD, levels);
    } else if (t.mode == '~') {
        f = Filter::comparison(t.key, Filter::Operator::Matches, Filter::NoOptions,
                               QStringLiteral(".*(?:%1).*").arg(t.value));
    } else if (t.mode == '=') {
        f = Filter::comparison(t.key, Filter::Operator::Equal, Filter::NoOptions, t.value);
    } else {
        f = Filter::comparison(t.key, Filter::Operator::Contains, CD, t.value);
    }
    if (!f.isValid())
        *error = f.errorString();
    return t.exclude ? Filter::notOf(f) : f;
}

} // namespace

Filter SearchQuery::plainSearch(const QString &text)
{
    QList<Filter> parts;
    for (const char *key : {"name", "text", "app", "pid", "tid", "note"})
        parts << Filter::comparison(QLatin1String(key), Filter::Operator::Contains, CD, text);
    return Filter::orOf(parts);
}

SearchQuery::Result SearchQuery::translate(const QString &text)
{
    // -key: / key~: / key=: followed by the value; "http://" and the like are words, not keys.
    static const QRegularExpression termPattern(QStringLiteral("^(-?)([A-Za-z]+)([~=]?):(?!//)(.*)$"),
                                                QRegularExpression::DotMatchesEverythingOption);
    Result result;
    std::map<QString, QList<Filter>> ored; // by key, in key order for a stable text
    QList<Filter> anded;
    QStringList words, unknown;
    for (const QString &token : tokens(text)) {
        const QRegularExpressionMatch m = termPattern.match(token);
        if (!m.hasMatch()) {
            words << token;
            continue;
        }
        const QString studioKey = m.captured(2).toLower();
        if (!studioKeys().contains(studioKey)) {
            unknown << m.captured(2);
            continue;
        }
        result.isQuery = true;
        const QString mode = m.captured(3);
        const Term term{studioKeys().value(studioKey), !m.captured(1).isEmpty(), mode.isEmpty() ? char(0) : char(mode[0].unicode()), m.captured(4)};
        const Filter f = termFilter(term, &result.error);
        if (!result.error.isEmpty())
            return result;
        if (term.exclude)
            anded << f;
        else
            ored[term.key] << f;
    }
    if (!result.isQuery)
        return result;
    if (!unknown.isEmpty()) {
        result.error = QStringLiteral("Unknown key %1: use tag, package, app, pid, tid, level, message or msg")
                           .arg(QLatin1Char('"') + unknown.join(QLatin1String("\", \"")) + QLatin1Char('"'));
        return result;
    }
    QList<Filter> parts;
    for (const auto &[key, filters] : ored)
        parts << Filter::orOf(filters);
    parts << anded;
    if (!words.isEmpty())
        parts << plainSearch(words.join(u' '));
    result.filter = Filter::andOf(parts);
    return result;
}
