// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>
#include <optional>
#include <span>

class FilterEvalContext;

// A parsed filter expression over the fields of a LogEntry: comparisons joined by AND, OR and NOT.
//
// Parse once, evaluate many times: a Filter is an immutable, implicitly shared tree, so copies are
// cheap and any number of threads may evaluate the same Filter at once.
//
// Text form (what parse() accepts):
//   expr       := or
//   or         := and { (OR | ||) and }
//   and        := unary { (AND | &&) unary }
//   unary      := (NOT | !) unary | '(' or ')' | comparison
//   comparison := key operator ['[' c|d|cd ']'] constant
//   operator   := == | = | != | <> | < | <= | > | >= | CONTAINS | IN | BEGINSWITH | ENDSWITH | LIKE | MATCHES
//   constant   := 'text' | "text" (a backslash takes the next character literally) | integer
// Keywords are case-insensitive; nesting is limited to Filter::MaxDepth levels.
// toString() prints the canonical form: upper-case words, constants in double quotes, compound parts of a
// compound in parentheses; parse(f.toString()) == f.
class Filter
{
public:
    enum class Kind { Comparison, And, Or, Not };
    enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual, Contains, In, BeginsWith,
                          EndsWith, Like, Matches };
    enum Option : int { NoOptions = 0, CaseInsensitive = 1, DiacriticInsensitive = 2 };

    // Deeper nesting of parentheses and NOT is a parse error rather than a risk to the stack.
    static constexpr int MaxDepth = 256;

    Filter() = default; // null: no filter and no error

    static Filter parse(const QString &text);

    // Builders; an invalid argument (bad key, bad regular expression) gives an invalid Filter.
    static Filter comparison(const QString &key, Operator op, int options, const QString &constant);
    static Filter comparison(const QString &key, Operator op, int options, qint64 number);
    // AND / OR of one filter is that filter; of none, a null Filter. Null parts are skipped; an invalid part
    // makes the result that invalid filter.
    static Filter andOf(const QList<Filter> &parts);
    static Filter orOf(const QList<Filter> &parts);
    static Filter notOf(const Filter &part);

    bool isNull() const { return !m_node && m_error.isEmpty(); }
    bool isValid() const { return m_node != nullptr; }
    // Why parsing failed and where, e.g. "Expected an operator after "text" at position 6".
    QString errorString() const { return m_error; }
    // Offset of the error in the parsed text (0-based), -1 when there is none.
    qsizetype errorOffset() const { return m_errorOffset; }

    QString toString() const; // canonical text; empty for a null or invalid Filter

    // Evaluation. A comparison whose key the entry does not have is false, without error. A string operator
    // on the number under "idx", or text compared with a number, is an evaluation error: matches() then
    // returns false and sets *error. An invalid or null Filter is an error too.
    struct Result
    {
        bool matched = false;
        QString error; // empty when evaluation succeeded
        bool ok() const { return error.isEmpty(); }
    };
    Result evaluate(const LogEntry &entry) const;
    bool matches(const LogEntry &entry, QString *error = nullptr) const;

    // The tree, for inspection.
    Kind kind() const;
    QList<Filter> parts() const; // children of And, Or, Not
    QString key() const;         // Comparison only
    Operator op() const;
    int options() const;
    QString constant() const;              // the text, or the number in decimal
    std::optional<qint64> number() const; // set when the constant is a number

    // Structural equality of two trees (for an invalid Filter: the same error).
    friend bool operator==(const Filter &a, const Filter &b);
    friend bool operator!=(const Filter &a, const Filter &b) { return !(a == b); }

    static QString operatorName(Operator op); // "==", "CONTAINS", ...

    struct Node;

private:
    std::shared_ptr<const Node> m_node;
    QString m_error;
    qsizetype m_errorOffset = -1;

    friend struct FilterNodeAccess;
    friend class FilterEvaluator;
    friend class FilterParser;
    static Filter fromError(const QString &why, qsizetype offset);
};

// Evaluates one Filter over many entries on one thread, reusing its text buffers from entry to entry
// (no allocation per entry for ASCII fields). Not shareable: one FilterEvaluator per thread, while the
// Filter itself is shared.
class FilterEvaluator
{
public:
    explicit FilterEvaluator(const Filter &filter);
    ~FilterEvaluator();
    FilterEvaluator(const FilterEvaluator &) = delete;
    FilterEvaluator &operator=(const FilterEvaluator &) = delete;
    Filter::Result evaluate(const LogEntry &entry);
    bool matches(const LogEntry &entry, QString *error = nullptr);
    const Filter &filter() const { return m_filter; }

private:
    Filter m_filter;
    std::unique_ptr<FilterEvalContext> m_context;
};

// The entries that pass `filter`, in their order, evaluated on two threads for large inputs.
// On an evaluation error the result is empty and *error is set (the first error in entry order).
// `cancelled`, when given, is asked every thousand entries (from both threads); once it says true the
// result is empty and means nothing.
using FilterCancelled = std::function<bool()>;
QVector<LogEntry> filterEntries(std::span<const LogEntry> entries, const Filter &filter, QString *error = nullptr,
                                const FilterCancelled &cancelled = {});
inline QVector<LogEntry> filterEntries(const QVector<LogEntry> &entries, const Filter &filter, QString *error = nullptr,
                                       const FilterCancelled &cancelled = {})
{
    return filterEntries(std::span<const LogEntry>(entries.constData(), size_t(entries.size())), filter, error,
                         cancelled);
}
