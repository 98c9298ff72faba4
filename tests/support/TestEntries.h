// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"

#include <QList>
#include <QString>
#include <QStringList>

// A log entry for a test: set only the fields the case is about, e.g. testEntry({.type = "E", .text = " x"}).
struct EntryFields
{
    quint64 idx = 1;
    QString time = QStringLiteral("01-23 14:05:06.789");
    QString app = QString();
    QString pid = QStringLiteral("1234");
    QString tid = QStringLiteral("-");
    QString type = QStringLiteral("I");
    QString name = QStringLiteral("Tag");
    QString text = QString();
    QString note = QString();
};

inline LogEntry testEntry(const EntryFields &f)
{
    return LogEntry::create(f.idx, {f.time, f.app, f.pid, f.tid, f.type, f.name, f.text, f.note});
}

// "time|app|pid|tid|type|name|text|note" of an entry, one comparison for all its fields; a null text for
// no entry.
inline QString fieldsOf(const LogEntry &e)
{
    if (e.isNull())
        return {};
    QStringList fields;
    for (int f = LogEntry::Time; f <= LogEntry::Note; ++f)
        fields << e.value(LogEntry::Field(f));
    return fields.join(u'|');
}

// `count` entries numbered from `firstIdx`, each with the text " message <idx>".
inline QList<LogEntry> testEntries(quint64 firstIdx, int count)
{
    QList<LogEntry> entries;
    for (int i = 0; i < count; ++i) {
        const quint64 idx = firstIdx + quint64(i);
        entries.append(testEntry({.idx = idx, .text = QStringLiteral(" message %1").arg(idx)}));
    }
    return entries;
}
