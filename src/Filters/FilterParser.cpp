// SPDX-License-Identifier: MIT
#include "Filters/FilterParser.h"

#include <limits>

namespace {

bool isWordChar(QChar ch)
{
    return ch.unicode() < 128 && (ch.isLetterOrNumber() || ch == u'_');
}

struct WordOperator
{
    QLatin1StringView word;
    Filter::Operator op;
};

constexpr WordOperator WordOperators[] = {
    {QLatin1StringView("CONTAINS"), Filter::Operator::Contains},
    {QLatin1StringView("IN"), Filter::Operator::In},
    {QLatin1StringView("BEGINSWITH"), Filter::Operator::BeginsWith},
    {QLatin1StringView("ENDSWITH"), Filter::Operator::EndsWith},
    {QLatin1StringView("LIKE"), Filter::Operator::Like},
    {QLatin1StringView("MATCHES"), Filter::Operator::Matches},
};

// Longer symbols first so that "<=" is not read as "<".
struct SymbolOperator
{
    QLatin1StringView symbol;
    Filter::Operator op;
};

constexpr SymbolOperator SymbolOperators[] = {
    {QLatin1StringView("=="), Filter::Operator::Equal},
    {QLatin1StringView("!="), Filter::Operator::NotEqual},
    {QLatin1StringView("<>"), Filter::Operator::NotEqual},
    {QLatin1StringView("<="), Filter::Operator::LessOrEqual},
    {QLatin1StringView("=<"), Filter::Operator::LessOrEqual},
    {QLatin1StringView(">="), Filter::Operator::GreaterOrEqual},
    {QLatin1StringView("=>"), Filter::Operator::GreaterOrEqual},
    {QLatin1StringView("="), Filter::Operator::Equal},
    {QLatin1StringView("<"), Filter::Operator::Less},
    {QLatin1StringView(">"), Filter::Operator::Greater},
};

} // namespace

Filter FilterParser::parse()
{
    skipSpace();
    if (atEnd()) {
        fail(QStringLiteral("Expected a filter expression, found the end of the text"), m_pos);
        return Filter::fromError(m_error, m_errorPos);
    }
    Filter f = parseOr();
    if (failed())
        return Filter::fromError(m_error, m_errorPos);
    skipSpace();
    if (!atEnd()) {
        if (m_text.at(m_pos) == u')')
            fail(QStringLiteral("Unexpected \")\" without a matching \"(\""), m_pos);
        else
            fail(QStringLiteral("Expected AND, OR or the end of the filter, found %1").arg(found(m_pos)), m_pos);
        return Filter::fromError(m_error, m_errorPos);
    }
    return f;
}

Filter FilterParser::parseOr()
{
    QList<Filter> parts{parseAnd()};
    while (!failed()) {
        skipSpace();
        if (!takeKeyword(QLatin1StringView("OR")) && !takeSymbol(QLatin1StringView("||")))
            break;
        parts.append(parseAnd());
    }
    return failed() ? Filter() : Filter::orOf(parts);
}

Filter FilterParser::parseAnd()
{
    QList<Filter> parts{parseUnary()};
    while (!failed()) {
        skipSpace();
        if (!takeKeyword(QLatin1StringView("AND")) && !takeSymbol(QLatin1StringView("&&")))
            break;
        parts.append(parseUnary());
    }
    return failed() ? Filter() : Filter::andOf(parts);
}

Filter FilterParser::parseUnary()
{
    skipSpace();
    const qsizetype start = m_pos;
    const bool bang = !atEnd() && m_text.at(m_pos) == u'!' &&
                      (m_pos + 1 >= m_text.size() || m_text.at(m_pos + 1) != u'=');
    if (bang || takeKeyword(QLatin1StringView("NOT"))) {
        if (bang)
            ++m_pos;
        if (++m_depth > Filter::MaxDepth)
            return fail(QStringLiteral("Filter is nested deeper than %1 levels").arg(Filter::MaxDepth), start);
        Filter inner = parseUnary();
        --m_depth;
        return failed() ? Filter() : Filter::notOf(inner);
    }
    if (!atEnd() && m_text.at(m_pos) == u'(') {
        if (++m_depth > Filter::MaxDepth)
            return fail(QStringLiteral("Filter is nested deeper than %1 levels").arg(Filter::MaxDepth), start);
        ++m_pos;
        Filter inner = parseOr();
        if (failed())
            return {};
        skipSpace();
        if (atEnd() || m_text.at(m_pos) != u')')
            return fail(QStringLiteral("Expected \")\" to close the \"(\" at position %1, found %2")
                            .arg(start + 1)
                            .arg(found(m_pos)),
                        m_pos);
        ++m_pos;
        --m_depth;
        return inner;
    }
    return parseComparison();
}

Filter FilterParser::parseComparison()
{
    skipSpace();
    const qsizetype keyPos = m_pos;
    const QStringView word = wordAt(m_pos);
    if (word.isEmpty() || word.front().isDigit())
        return fail(QStringLiteral("Expected a key such as \"text\", found %1").arg(found(m_pos)), m_pos);
    for (const char *keyword : {"AND", "OR"})
        if (word.compare(QLatin1StringView(keyword), Qt::CaseInsensitive) == 0)
            return fail(QStringLiteral("Expected a key before %1").arg(found(m_pos)), m_pos);
    const QString key = word.toString();
    m_pos += word.size();

    skipSpace();
    Filter::Operator op;
    if (!parseOperator(op))
        return fail(QStringLiteral("Expected an operator after \"%1\", found %2").arg(key, found(m_pos)), m_pos);
    int options = Filter::NoOptions;
    if (!parseOptions(options))
        return {};
    skipSpace();
    const qsizetype constantPos = m_pos;
    QString text;
    std::optional<qint64> number;
    if (!parseConstant(text, number))
        return {};

    Filter f = number ? Filter::comparison(key, op, options, *number) : Filter::comparison(key, op, options, text);
    if (!f.isValid())
        return fail(f.errorString(), op == Filter::Operator::Like || op == Filter::Operator::Matches ? constantPos
                                                                                                      : keyPos);
    return f;
}

bool FilterParser::parseOperator(Filter::Operator &op)
{
    for (const SymbolOperator &s : SymbolOperators) {
        if (takeSymbol(s.symbol)) {
            op = s.op;
            return true;
        }
    }
    for (const WordOperator &w : WordOperators) {
        if (takeKeyword(w.word)) {
            op = w.op;
            return true;
        }
    }
    return false;
}

bool FilterParser::parseOptions(int &options)
{
    skipSpace();
    if (atEnd() || m_text.at(m_pos) != u'[')
        return true;
    const qsizetype open = m_pos++;
    for (; !atEnd() && m_text.at(m_pos) != u']'; ++m_pos) {
        const QChar ch = m_text.at(m_pos).toLower();
        if (ch == u'c') {
            options |= Filter::CaseInsensitive;
        } else if (ch == u'd') {
            options |= Filter::DiacriticInsensitive;
        } else {
            fail(QStringLiteral("Unknown option %1 (use c, d or cd)").arg(found(m_pos)), m_pos);
            return false;
        }
    }
    if (atEnd()) {
        fail(QStringLiteral("Expected \"]\" to close the options at position %1").arg(open + 1), m_pos);
        return false;
    }
    if (m_pos == open + 1) {
        fail(QStringLiteral("Empty options \"[]\" (use c, d or cd)"), open);
        return false;
    }
    ++m_pos;
    return true;
}

bool FilterParser::parseConstant(QString &text, std::optional<qint64> &number)
{
    if (atEnd()) {
        fail(QStringLiteral("Expected a quoted text or a number, found the end of the text"), m_pos);
        return false;
    }
    const QChar quote = m_text.at(m_pos);
    if (quote == u'\'' || quote == u'"') {
        const qsizetype open = m_pos++;
        while (!atEnd() && m_text.at(m_pos) != quote) {
            if (m_text.at(m_pos) == u'\\' && m_pos + 1 < m_text.size())
                ++m_pos; // the escaped character is taken as it is
            else if (m_text.at(m_pos) == u'\\')
                break;
            text += m_text.at(m_pos++);
        }
        if (atEnd() || m_text.at(m_pos) != quote) {
            fail(QStringLiteral("Quoted text is not closed"), open);
            return false;
        }
        ++m_pos;
        return true;
    }
    const qsizetype start = m_pos;
    if (quote == u'-' || quote == u'+')
        ++m_pos;
    while (!atEnd() && m_text.at(m_pos).isDigit() && m_text.at(m_pos).unicode() < 128)
        ++m_pos;
    const QStringView digits = QStringView(m_text).mid(start, m_pos - start);
    if (!digits.isEmpty() && digits.back().isDigit() && (atEnd() || !isWordChar(m_text.at(m_pos)))) {
        bool ok = false;
        const qint64 value = digits.toLongLong(&ok);
        if (!ok) {
            fail(QStringLiteral("Number %1 is out of range").arg(digits), start);
            return false;
        }
        number = value;
        return true;
    }
    m_pos = start;
    fail(QStringLiteral("Expected a quoted text or a number, found %1").arg(found(m_pos)), m_pos);
    return false;
}

void FilterParser::skipSpace()
{
    while (!atEnd() && m_text.at(m_pos).isSpace())
        ++m_pos;
}

QStringView FilterParser::wordAt(qsizetype pos) const
{
    qsizetype end = pos;
    while (end < m_text.size() && isWordChar(m_text.at(end)))
        ++end;
    return QStringView(m_text).mid(pos, end - pos);
}

bool FilterParser::takeKeyword(QLatin1StringView keyword)
{
    if (wordAt(m_pos).compare(keyword, Qt::CaseInsensitive) != 0)
        return false;
    m_pos += keyword.size();
    return true;
}

bool FilterParser::takeSymbol(QLatin1StringView symbol)
{
    if (!QStringView(m_text).mid(m_pos).startsWith(symbol))
        return false;
    m_pos += symbol.size();
    return true;
}

// A short, quoted excerpt of what stands at pos, for error messages.
QString FilterParser::found(qsizetype pos) const
{
    if (pos >= m_text.size())
        return QStringLiteral("the end of the text");
    qsizetype end = pos;
    if (isWordChar(m_text.at(pos))) {
        while (end < m_text.size() && isWordChar(m_text.at(end)) && end - pos < 20)
            ++end;
    } else {
        end = pos + 1;
    }
    return u'"' + m_text.mid(pos, end - pos) + u'"';
}

Filter FilterParser::fail(const QString &why, qsizetype pos)
{
    if (m_error.isEmpty()) {
        m_error = why;
        m_errorPos = pos;
    }
    return {};
}
