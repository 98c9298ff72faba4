// SPDX-License-Identifier: MIT
#pragma once
// The end-to-end benchmarks alternate a reference (an adb command) and our client round by round.

#include <QList>
#include <QString>

#include <algorithm>

namespace bench {

inline double ratio(double subject, double reference)
{
    return reference > 0 ? subject / reference : 0;
}

inline double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0.0 : values.at(values.size() / 2);
}

// "round N: <reference> R <unit>, <subject> S <unit>, ratio S/R"
inline QString roundLine(int round, const QString &reference, double referenceRate, const QString &subject,
                         double subjectRate, const QString &unit, int precision)
{
    return QStringLiteral("round %1: %2 %3 %4, %5 %6 %4, ratio %7")
        .arg(round)
        .arg(reference)
        .arg(referenceRate, 0, 'f', precision)
        .arg(unit)
        .arg(subject)
        .arg(subjectRate, 0, 'f', precision)
        .arg(ratio(subjectRate, referenceRate), 0, 'f', 2);
}

} // namespace bench
