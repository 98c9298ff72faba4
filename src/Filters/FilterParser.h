// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"

#include <QString>
#include <QStringView>

// Recursive-descent parser of the filter text form described in Filter.h. One use per text.
class FilterParser
{
public:
    explicit FilterParser(const QString &text) : m_text(text) {}

    Filter parse();

private:
    Filter parseOr();
    Filter parseAnd();
    Filter parseUnary();
    Filter parseComparison();
    bool parseOperator(Filter::Operator &op);
    bool parseOptions(int &options);
    bool parseConstant(QString &text, std::optional<qint64> &number);

    void skipSpace();
    bool atEnd() const { return m_pos >= m_text.size(); }
    QStringView wordAt(qsizetype pos) const;
    bool takeKeyword(QLatin1StringView keyword);
    bool takeSymbol(QLatin1StringView symbol);
    QString found(qsizetype pos) const;
    Filter fail(const QString &why, qsizetype pos);
    bool failed() const { return !m_error.isEmpty(); }

    const QString &m_text;
    qsizetype m_pos = 0;
    int m_depth = 0;
    QString m_error;
    qsizetype m_errorPos = -1;
};
