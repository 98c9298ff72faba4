// SPDX-License-Identifier: MIT
#include "Filters/Filter.h"

#include "Filters/AsciiNeedle.h"
#include "Filters/FilterParser.h"

#include <QRegularExpression>
#include <QStringView>

#include <array>
#include <atomic>
#include <bitset>
#include <thread>
#include <vector>

struct Filter::Node
{
    Kind kind = Kind::Comparison;
    std::vector<Filter> parts;

    QString key;
    std::optional<LogEntry::Field> field; // none: a key no entry has
    Operator op = Operator::Equal;
    int options = NoOptions;
    QString constant;
    std::optional<qint64> number;
    QString folded;                // the constant folded by the options
    bool foldIsFixedPoint = false; // per-character case folding leaves `folded` as it is
    bool foldedHasLetter = false;  // `folded` holds an ASCII letter
    // IN: the ASCII characters a one-character value may be to be found in the constant (both cases
    // when case is ignored). Set when that decides it; level filters test "type" this way per line.
    std::optional<std::bitset<128>> inAscii;
    QRegularExpression regex;      // Like, Matches
    // CONTAINS with an ASCII folded constant: searched in the entry's stored bytes, no text made.
    std::optional<AsciiNeedle> asciiNeedle;
};

namespace {

using Field = LogEntry::Field;

bool isMark(char32_t cp)
{
    switch (QChar::category(cp)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return false;
    }
}

// Diacritics: canonical decomposition, then the combining marks are dropped. Case: Unicode case folding.
QString foldText(QStringView text, int options)
{
    QString out = text.toString();
    if ((options & Filter::DiacriticInsensitive) && !QtPrivate::isAscii(text)) {
        const QString decomposed = out.normalized(QString::NormalizationForm_D);
        out.clear();
        out.reserve(decomposed.size());
        for (qsizetype i = 0; i < decomposed.size(); ++i) {
            const QChar ch = decomposed.at(i);
            if (ch.isHighSurrogate() && i + 1 < decomposed.size() && decomposed.at(i + 1).isLowSurrogate()) {
                const char32_t cp = QChar::surrogateToUcs4(ch, decomposed.at(i + 1));
                if (!isMark(cp))
                    out.append(decomposed.mid(i, 2));
                ++i;
            } else if (!isMark(ch.unicode())) {
                out.append(ch);
            }
        }
    }
    if (options & Filter::CaseInsensitive)
        out = out.toCaseFolded();
    return out;
}

bool isCaseFoldFixedPoint(const QString &text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar ch = text.at(i);
        char32_t cp = ch.unicode();
        if (ch.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            cp = QChar::surrogateToUcs4(ch, text.at(++i));
        if (QChar::toCaseFolded(cp) != cp)
            return false;
    }
    return true;
}

bool isTextOperator(Filter::Operator op)
{
    switch (op) {
    case Filter::Operator::Contains:
    case Filter::Operator::In:
    case Filter::Operator::BeginsWith:
    case Filter::Operator::EndsWith:
    case Filter::Operator::Like:
    case Filter::Operator::Matches:
        return true;
    default:
        return false;
    }
}

bool isIdentifier(const QString &key)
{
    if (key.isEmpty() || key.at(0).isDigit())
        return false;
    for (QChar ch : key)
        if (!(ch.unicode() < 128 && (ch.isLetterOrNumber() || ch == u'_')))
            return false;
    return true;
}

// Only ASCII punctuation is special to the expression engine; other characters (surrogate pairs included)
// are copied whole.
QString likeToRegex(const QString &pattern)
{
    QString re;
    re.reserve(pattern.size() * 2);
    for (QChar ch : pattern) {
        if (ch == u'*')
            re += QLatin1String(".*");
        else if (ch == u'?')
            re += u'.';
        else if (ch.unicode() < 128 && !ch.isLetterOrNumber())
            re += QLatin1Char('\\') + ch;
        else
            re += ch;
    }
    return re;
}

} // namespace

// Per-evaluation cache: each field is read from the entry once, and folded once per option set. Reused
// from entry to entry by an Evaluator, so its strings keep their capacity.
class FilterEvalContext
{
public:
    void reset(const LogEntry &entry)
    {
        m_entry = &entry;
        m_haveValue = m_checkedAscii = m_ascii = m_haveFolded = 0;
    }

    const QString &value(Field field)
    {
        const unsigned bit = 1u << field;
        QString &slot = m_values[size_t(field)];
        if (!(m_haveValue & bit)) {
            slot.truncate(0);
            m_entry->appendValue(field, slot);
            m_haveValue |= bit;
        }
        return slot;
    }

    bool isAscii(Field field)
    {
        const unsigned bit = 1u << field;
        if (!(m_checkedAscii & bit)) {
            if (QtPrivate::isAscii(QStringView(value(field))))
                m_ascii |= bit;
            m_checkedAscii |= bit;
        }
        return m_ascii & bit;
    }

    // options in 1..3
    const QString &folded(Field field, int options)
    {
        const unsigned bit = 1u << (field * 3 + options - 1);
        QString &slot = m_folded[size_t(field * 3 + options - 1)];
        if (!(m_haveFolded & bit)) {
            slot = foldText(value(field), options);
            m_haveFolded |= bit;
        }
        return slot;
    }

    QString error;

private:
    const LogEntry *m_entry = nullptr;
    unsigned m_haveValue = 0;
    unsigned m_checkedAscii = 0;
    unsigned m_ascii = 0;
    unsigned m_haveFolded = 0;
    std::array<QString, LogEntry::FieldCount> m_values;
    std::array<QString, LogEntry::FieldCount * 3> m_folded;
};

namespace {

enum Outcome { False = 0, True = 1, Error = -1 };

Outcome fromBool(bool b)
{
    return b ? True : False;
}

Outcome compareOrdered(Filter::Operator op, int order)
{
    switch (op) {
    case Filter::Operator::Equal:
        return fromBool(order == 0);
    case Filter::Operator::NotEqual:
        return fromBool(order != 0);
    case Filter::Operator::Less:
        return fromBool(order < 0);
    case Filter::Operator::LessOrEqual:
        return fromBool(order <= 0);
    case Filter::Operator::Greater:
        return fromBool(order > 0);
    case Filter::Operator::GreaterOrEqual:
        return fromBool(order >= 0);
    default:
        return False;
    }
}

Outcome compareText(Filter::Operator op, QStringView value, QStringView constant, Qt::CaseSensitivity cs)
{
    switch (op) {
    case Filter::Operator::Contains: // the empty text occurs in nothing
        return fromBool(!constant.isEmpty() && value.contains(constant, cs));
    case Filter::Operator::In:
        return fromBool(!value.isEmpty() && constant.contains(value, cs));
    case Filter::Operator::BeginsWith:
        return fromBool(!constant.isEmpty() && value.startsWith(constant, cs));
    case Filter::Operator::EndsWith:
        return fromBool(!constant.isEmpty() && value.endsWith(constant, cs));
    case Filter::Operator::Equal:
        return fromBool(value.size() == constant.size() && value.compare(constant, cs) == 0);
    case Filter::Operator::NotEqual:
        return fromBool(value.size() != constant.size() || value.compare(constant, cs) != 0);
    default:
        return compareOrdered(op, value.compare(constant, cs));
    }
}

Outcome evalNumber(const Filter::Node &n, quint64 idx, FilterEvalContext &ctx)
{
    if (isTextOperator(n.op)) {
        ctx.error = QStringLiteral("%1 needs text, but \"%2\" holds a number").arg(Filter::operatorName(n.op), n.key);
        return Error;
    }
    if (!n.number) {
        ctx.error = QStringLiteral("Cannot compare the number under \"%1\" with the text \"%2\"").arg(n.key, n.constant);
        return Error;
    }
    const qint64 c = *n.number;
    const int order = c < 0 ? 1 : (idx < quint64(c) ? -1 : (idx > quint64(c) ? 1 : 0));
    return compareOrdered(n.op, order);
}

Outcome evalComparison(const Filter::Node &n, const LogEntry &entry, FilterEvalContext &ctx)
{
    if (!n.field)
        return False; // no value: every comparison is false, != too
    const Field field = *n.field;
    if (field == LogEntry::Idx)
        return evalNumber(n, entry.idx(), ctx);
    if (n.number) {
        ctx.error = QStringLiteral("Cannot compare the text of \"%1\" with the number %2").arg(n.key).arg(*n.number);
        return Error;
    }
    if (n.inAscii) {
        // An ASCII character folds to itself: no text needs to be made for it.
        QByteArrayView raw;
        if (entry.storedUtf8(field, &raw) && raw.size() == 1 && uchar(raw[0]) < 128)
            return fromBool(n.inAscii->test(size_t(uchar(raw[0]))));
    }
    if (n.asciiNeedle) {
        // The search box's six CONTAINS[cd] per entry: found in the stored bytes, the answer holds under
        // any folding (folding keeps an ASCII run and folds its case as the needle was). Not found, it
        // holds too for ASCII bytes or without options; only other text needs the folded comparison.
        QByteArrayView raw;
        if (entry.storedUtf8(field, &raw)) {
            if (n.asciiNeedle->foundIn(raw))
                return True;
            if (n.options == Filter::NoOptions || QtPrivate::isAscii(QLatin1StringView(raw)))
                return False;
        }
    }
    const QString &value = ctx.value(field);
    if (n.op == Filter::Operator::Like || n.op == Filter::Operator::Matches) {
        const QStringView subject = (n.options & Filter::DiacriticInsensitive)
                                        ? QStringView(ctx.folded(field, Filter::DiacriticInsensitive))
                                        : QStringView(value);
        return fromBool(n.regex.match(subject).hasMatch());
    }
    if (n.options == Filter::NoOptions)
        return compareText(n.op, value, n.folded, Qt::CaseSensitive);
    // An ASCII value folds to itself (diacritics) or to its lower case: no folded copy is needed.
    if (n.foldIsFixedPoint && ctx.isAscii(field)) {
        Qt::CaseSensitivity cs = Qt::CaseSensitive;
        if (n.options & Filter::CaseInsensitive) {
            const bool ordering = n.op == Filter::Operator::Less || n.op == Filter::Operator::LessOrEqual ||
                                  n.op == Filter::Operator::Greater || n.op == Filter::Operator::GreaterOrEqual;
            if (ordering || n.foldedHasLetter)
                cs = Qt::CaseInsensitive;
        }
        return compareText(n.op, value, n.folded, cs);
    }
    return compareText(n.op, ctx.folded(field, n.options), n.folded, Qt::CaseSensitive);
}

Outcome evalNode(const Filter::Node &n, const LogEntry &entry, FilterEvalContext &ctx);

Outcome evalFilter(const Filter &f, const LogEntry &entry, FilterEvalContext &ctx);

} // namespace

// Access to the node of a part without widening the public API.
struct FilterNodeAccess
{
    static const Filter::Node *node(const Filter &f) { return f.m_node.get(); }
    static Filter error(const QString &why) { return Filter::fromError(why, -1); }
    static Filter wrap(std::shared_ptr<const Filter::Node> node)
    {
        Filter f;
        f.m_node = std::move(node);
        return f;
    }
};

namespace {

Outcome evalNode(const Filter::Node &n, const LogEntry &entry, FilterEvalContext &ctx)
{
    switch (n.kind) {
    case Filter::Kind::Comparison:
        return evalComparison(n, entry, ctx);
    case Filter::Kind::And:
        for (const Filter &part : n.parts) {
            const Outcome o = evalFilter(part, entry, ctx);
            if (o != True)
                return o;
        }
        return True;
    case Filter::Kind::Or:
        for (const Filter &part : n.parts) {
            const Outcome o = evalFilter(part, entry, ctx);
            if (o != False)
                return o;
        }
        return False;
    case Filter::Kind::Not: {
        const Outcome o = evalFilter(n.parts.front(), entry, ctx);
        return o == Error ? Error : fromBool(o == False);
    }
    }
    return False;
}

Outcome evalFilter(const Filter &f, const LogEntry &entry, FilterEvalContext &ctx)
{
    return evalNode(*FilterNodeAccess::node(f), entry, ctx);
}

QString quoted(const QString &text)
{
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (QChar ch : text) {
        if (ch == u'"' || ch == u'\\')
            out += u'\\';
        out += ch;
    }
    out += u'"';
    return out;
}

bool isCompound(const Filter &f)
{
    return f.isValid() && (f.kind() == Filter::Kind::And || f.kind() == Filter::Kind::Or);
}

QString printNode(const Filter::Node &n);

QString printPart(const Filter &part)
{
    const QString text = printNode(*FilterNodeAccess::node(part));
    return isCompound(part) ? QLatin1Char('(') + text + QLatin1Char(')') : text;
}

QString printNode(const Filter::Node &n)
{
    switch (n.kind) {
    case Filter::Kind::Comparison: {
        QString out = n.key + u' ' + Filter::operatorName(n.op);
        if (n.options) {
            out += u'[';
            if (n.options & Filter::CaseInsensitive)
                out += u'c';
            if (n.options & Filter::DiacriticInsensitive)
                out += u'd';
            out += u']';
        }
        out += u' ';
        out += n.number ? QString::number(*n.number) : quoted(n.constant);
        return out;
    }
    case Filter::Kind::And:
    case Filter::Kind::Or: {
        const QString glue = n.kind == Filter::Kind::And ? QStringLiteral(" AND ") : QStringLiteral(" OR ");
        QString out;
        for (const Filter &part : n.parts) {
            if (!out.isEmpty())
                out += glue;
            out += printPart(part);
        }
        return out;
    }
    case Filter::Kind::Not:
        return QStringLiteral("NOT ") + printPart(n.parts.front());
    }
    return {};
}

bool sameNode(const Filter::Node &a, const Filter::Node &b)
{
    if (a.kind != b.kind || a.parts.size() != b.parts.size())
        return false;
    if (a.kind == Filter::Kind::Comparison)
        return a.key == b.key && a.op == b.op && a.options == b.options && a.number == b.number &&
               a.constant == b.constant;
    for (size_t i = 0; i < a.parts.size(); ++i)
        if (a.parts[i] != b.parts[i])
            return false;
    return true;
}

} // namespace

Filter Filter::parse(const QString &text)
{
    return FilterParser(text).parse();
}

Filter Filter::fromError(const QString &why, qsizetype offset)
{
    Filter f;
    f.m_error = offset >= 0 ? QStringLiteral("%1 at position %2").arg(why).arg(offset + 1) : why;
    f.m_errorOffset = offset;
    return f;
}

static Filter makeComparison(const QString &key, Filter::Operator op, int options, const QString &constant,
                             std::optional<qint64> number)
{
    auto node = std::make_shared<Filter::Node>();
    node->kind = Filter::Kind::Comparison;
    node->key = key;
    node->field = LogEntry::fieldForKey(key);
    node->op = op;
    node->options = options & (Filter::CaseInsensitive | Filter::DiacriticInsensitive);
    node->number = number;
    node->constant = number ? QString::number(*number) : constant;
    node->folded = foldText(node->constant, node->options);
    node->foldIsFixedPoint = isCaseFoldFixedPoint(node->folded);
    node->foldedHasLetter = std::any_of(node->folded.cbegin(), node->folded.cend(), [](QChar ch) {
        return (ch >= u'a' && ch <= u'z') || (ch >= u'A' && ch <= u'Z');
    });
    if (op == Filter::Operator::Contains && !number && node->field && *node->field != LogEntry::Idx &&
        !node->folded.isEmpty() && QtPrivate::isAscii(QStringView(node->folded)))
        node->asciiNeedle.emplace(node->folded.toLatin1(), (node->options & Filter::CaseInsensitive) != 0);
    if (op == Filter::Operator::In && !number && node->field && *node->field != LogEntry::Idx &&
        (node->options == Filter::NoOptions || node->foldIsFixedPoint)) {
        std::bitset<128> set;
        for (QChar ch : std::as_const(node->folded)) {
            if (ch.unicode() >= 128)
                continue;
            const char c = char(ch.unicode());
            set.set(size_t(c));
            if (node->options & Filter::CaseInsensitive) {
                set.set(size_t(QChar::toLower(uint(c))));
                set.set(size_t(QChar::toUpper(uint(c))));
            }
        }
        node->inAscii = set;
    }
    if (op == Filter::Operator::Like || op == Filter::Operator::Matches) {
        // Case is left to the expression so that only diacritics need a folded copy of the value.
        QRegularExpression::PatternOptions reOptions = QRegularExpression::DotMatchesEverythingOption;
        if (node->options & Filter::CaseInsensitive)
            reOptions |= QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption;
        const auto compile = [&](const QString &source) {
            return QRegularExpression(
                QRegularExpression::anchoredPattern(op == Filter::Operator::Like ? likeToRegex(source) : source),
                reOptions);
        };
        // isValid() compiles the pattern now, before the filter is shared between threads.
        node->regex = compile(node->constant);
        if (!node->regex.isValid())
            return FilterNodeAccess::error(
                QStringLiteral("Invalid regular expression (%1)").arg(node->regex.errorString()));
        if (node->options & Filter::DiacriticInsensitive) {
            // Accents in the pattern are dropped like those of the value, unless that breaks the expression
            // (a mark that was escaped or quantified).
            QRegularExpression folded = compile(foldText(node->constant, Filter::DiacriticInsensitive));
            if (folded.isValid())
                node->regex = std::move(folded);
        }
    }
    return FilterNodeAccess::wrap(std::move(node));
}

Filter Filter::comparison(const QString &key, Operator op, int options, const QString &constant)
{
    if (!isIdentifier(key))
        return fromError(QStringLiteral("\"%1\" is not a key").arg(key), -1);
    return makeComparison(key, op, options, constant, std::nullopt);
}

Filter Filter::comparison(const QString &key, Operator op, int options, qint64 number)
{
    if (!isIdentifier(key))
        return fromError(QStringLiteral("\"%1\" is not a key").arg(key), -1);
    return makeComparison(key, op, options, QString(), number);
}

static Filter makeCompound(Filter::Kind kind, const QList<Filter> &parts)
{
    std::vector<Filter> kept;
    kept.reserve(size_t(parts.size()));
    for (const Filter &p : parts) {
        if (p.isNull())
            continue;
        if (!p.isValid())
            return p;
        kept.push_back(p);
    }
    if (kept.empty())
        return {};
    if (kept.size() == 1 && kind != Filter::Kind::Not)
        return kept.front();
    auto node = std::make_shared<Filter::Node>();
    node->kind = kind;
    node->parts = std::move(kept);
    return FilterNodeAccess::wrap(std::move(node));
}

Filter Filter::andOf(const QList<Filter> &parts)
{
    return makeCompound(Kind::And, parts);
}

Filter Filter::orOf(const QList<Filter> &parts)
{
    return makeCompound(Kind::Or, parts);
}

Filter Filter::notOf(const Filter &part)
{
    return makeCompound(Kind::Not, {part});
}

QString Filter::toString() const
{
    return m_node ? printNode(*m_node) : QString();
}

static Filter::Result evaluateWith(const Filter &filter, const Filter::Node *node, const LogEntry &entry,
                                   FilterEvalContext &ctx)
{
    Filter::Result result;
    if (!node) {
        result.error = filter.errorString().isEmpty() ? QStringLiteral("No filter") : filter.errorString();
        return result;
    }
    ctx.reset(entry);
    const Outcome o = evalNode(*node, entry, ctx);
    if (o == Error)
        result.error = std::move(ctx.error);
    else
        result.matched = o == True;
    return result;
}

Filter::Result Filter::evaluate(const LogEntry &entry) const
{
    FilterEvalContext ctx;
    return evaluateWith(*this, m_node.get(), entry, ctx);
}

bool Filter::matches(const LogEntry &entry, QString *error) const
{
    Result r = evaluate(entry);
    if (!r.ok() && error)
        *error = std::move(r.error);
    return r.matched;
}

FilterEvaluator::FilterEvaluator(const Filter &filter) : m_filter(filter), m_context(std::make_unique<FilterEvalContext>())
{
}

FilterEvaluator::~FilterEvaluator() = default;

Filter::Result FilterEvaluator::evaluate(const LogEntry &entry)
{
    return evaluateWith(m_filter, m_filter.m_node.get(), entry, *m_context);
}

bool FilterEvaluator::matches(const LogEntry &entry, QString *error)
{
    Filter::Result r = evaluate(entry);
    if (!r.ok() && error)
        *error = std::move(r.error);
    return r.matched;
}

Filter::Kind Filter::kind() const
{
    return m_node ? m_node->kind : Kind::Comparison;
}

QList<Filter> Filter::parts() const
{
    return m_node ? QList<Filter>(m_node->parts.cbegin(), m_node->parts.cend()) : QList<Filter>();
}

QString Filter::key() const
{
    return m_node ? m_node->key : QString();
}

Filter::Operator Filter::op() const
{
    return m_node ? m_node->op : Operator::Equal;
}

int Filter::options() const
{
    return m_node ? m_node->options : NoOptions;
}

QString Filter::constant() const
{
    return m_node ? m_node->constant : QString();
}

std::optional<qint64> Filter::number() const
{
    return m_node ? m_node->number : std::nullopt;
}

bool operator==(const Filter &a, const Filter &b)
{
    if (a.m_node == b.m_node)
        return a.m_error == b.m_error;
    if (!a.m_node || !b.m_node)
        return false;
    return sameNode(*a.m_node, *b.m_node);
}

QString Filter::operatorName(Operator op)
{
    switch (op) {
    case Operator::Equal:
        return QStringLiteral("==");
    case Operator::NotEqual:
        return QStringLiteral("!=");
    case Operator::Less:
        return QStringLiteral("<");
    case Operator::LessOrEqual:
        return QStringLiteral("<=");
    case Operator::Greater:
        return QStringLiteral(">");
    case Operator::GreaterOrEqual:
        return QStringLiteral(">=");
    case Operator::Contains:
        return QStringLiteral("CONTAINS");
    case Operator::In:
        return QStringLiteral("IN");
    case Operator::BeginsWith:
        return QStringLiteral("BEGINSWITH");
    case Operator::EndsWith:
        return QStringLiteral("ENDSWITH");
    case Operator::Like:
        return QStringLiteral("LIKE");
    case Operator::Matches:
        return QStringLiteral("MATCHES");
    }
    return {};
}

namespace {

struct Slice
{
    QVector<LogEntry> passed;
    QString error;
};

void filterSlice(std::span<const LogEntry> entries, const Filter &filter, Slice &out, std::atomic<bool> &stop,
                 const FilterCancelled &cancelled)
{
    out.passed.reserve(qsizetype(entries.size() / 4));
    FilterEvaluator evaluator(filter);
    size_t i = 0;
    for (const LogEntry &entry : entries) {
        // An error anywhere ends the whole run; checked every few entries to keep the loop lean.
        if ((++i & 1023) == 0 && (stop.load(std::memory_order_relaxed) || (cancelled && cancelled()))) {
            out.passed.clear();
            return;
        }
        Filter::Result r = evaluator.evaluate(entry);
        if (!r.ok()) {
            out.error = std::move(r.error);
            stop.store(true, std::memory_order_relaxed);
            return;
        }
        if (r.matched)
            out.passed.append(entry);
    }
}

} // namespace

QVector<LogEntry> filterEntries(std::span<const LogEntry> entries, const Filter &filter, QString *error,
                                const FilterCancelled &cancelled)
{
    // Below this size a second thread costs more than it saves.
    constexpr size_t ParallelThreshold = 8192;
    std::atomic<bool> stop{false};
    if (!filter.isValid()) {
        if (error)
            *error = filter.errorString().isEmpty() ? QStringLiteral("No filter") : filter.errorString();
        return {};
    }
    Slice first;
    if (entries.size() < ParallelThreshold) {
        filterSlice(entries, filter, first, stop, cancelled);
    } else {
        const size_t half = entries.size() / 2;
        Slice second;
        std::thread worker([&] { filterSlice(entries.subspan(half), filter, second, stop, cancelled); });
        filterSlice(entries.first(half), filter, first, stop, cancelled);
        worker.join();
        if (first.error.isEmpty() && !second.error.isEmpty())
            first.error = std::move(second.error);
        if (first.error.isEmpty())
            first.passed.append(second.passed);
    }
    if (!first.error.isEmpty()) {
        if (error)
            *error = first.error;
        return {};
    }
    return std::move(first.passed);
}
