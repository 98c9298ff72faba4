// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable GoogleTest failure output for Qt strings and bytes.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QByteArray &bytes, std::ostream *os)
{
    *os << '"' << bytes.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *os)
{
    *os << "{";
    for (const QString &text : list)
        *os << " \"" << text.toStdString() << "\"";
    *os << " }";
}
