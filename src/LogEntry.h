// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <array>
#include <optional>

// One log line as a record of nine text fields. A LogEntry is a cheap, shared handle: copies refer to
// the same record, so the full log and the filtered view hold the same entry, and "app" / "note"
// written later are seen through every copy. Reads and writes are safe from any thread.
class LogEntry
{
public:
    enum Field : int { Idx, Time, App, Pid, Tid, Type, Name, Text, Note };
    static constexpr int FieldCount = 9;

    // "idx", "time", "app", "pid", "tid", "type", "name", "text", "note" in this order.
    static const QStringList &keysArray();
    static std::optional<Field> fieldForKey(QStringView key);

    LogEntry() = default; // a null entry
    // Fields in key order after idx: time, app, pid, tid, type, name, text, note.
    static LogEntry create(quint64 idx, const std::array<QString, FieldCount - 1> &fields);

    bool isNull() const;
    quint64 idx() const;
    QString value(Field field) const; // Idx gives the number in decimal
    void setApp(const QString &app) const;
    void setNote(const QString &note) const;
    bool sameRecord(const LogEntry &other) const;

private:
    struct Record;
    // Implementation owns the layout (kept compact: a million entries must fit in little memory).
};
