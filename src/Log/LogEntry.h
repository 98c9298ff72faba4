// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <array>
#include <optional>
#include <vector>

struct LogEntryFields;

// One log line as a record of nine text fields. A LogEntry is a cheap, shared handle: copies refer to
// the same record, so the full log and the filtered view hold the same entry, and "app" / "note"
// written later are seen through every copy. Reads and writes are safe from any thread.
//
// Storage: the fields are kept as UTF-8 bytes. An entry made from one line owns a small buffer with
// its fields; entries loaded from a file share the file's bytes and hold only offsets (see
// LogEntryBlockBuilder). QStrings are made only when a field is read. "app" and "note" written after
// creation live in a mutex-guarded side table of the record, published through an atomic pointer,
// so the common read (nothing written later) takes no lock.
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
    // Fields given as slices of one UTF-8 line (or owned values); the line's bytes are copied.
    static LogEntry fromLine(quint64 idx, QByteArrayView utf8Line, const LogEntryFields &fields);

    LogEntry(const LogEntry &other) noexcept;
    LogEntry(LogEntry &&other) noexcept;
    LogEntry &operator=(const LogEntry &other) noexcept;
    LogEntry &operator=(LogEntry &&other) noexcept;
    ~LogEntry();

    bool isNull() const { return m_d == nullptr; }
    // A hint that the record is about to be used or released.
    void prefetch() const;
    quint64 idx() const;
    QString value(Field field) const; // Idx gives the number in decimal; a null entry gives ""
    QByteArray utf8Value(Field field) const;
    void appendValue(Field field, QString &out) const;
    // Compares without building a QString when the field was not written after creation.
    bool fieldEquals(Field field, QStringView text, Qt::CaseSensitivity cs = Qt::CaseSensitive) const;
    bool fieldIsEmpty(Field field) const;
    // The field's bytes as stored, valid while the entry lives; false when it was written after
    // creation (an "app" or "note" set later) or for "idx".
    bool storedUtf8(Field field, QByteArrayView *out) const;
    void setApp(const QString &app) const;
    void setNote(const QString &note) const;
    bool sameRecord(const LogEntry &other) const { return m_d == other.m_d && m_row == other.m_row; }

    struct Record;

private:
    friend class LogEntryBlockBuilder;
    LogEntry(Record *adopted, quint32 row) noexcept : m_d(adopted), m_row(row) {}
    // The field's bytes when it was not written after creation; false when an override applies.
    bool rawUtf8(Field field, QByteArrayView *out, QString *overrideValue) const;
    void setOverride(Field field, const QString &value) const;

    Record *m_d = nullptr;
    quint32 m_row = 0;
};
Q_DECLARE_TYPEINFO(LogEntry, Q_RELOCATABLE_TYPE);

// The fields of one parsed line before it becomes an entry: each field (key order after idx) is a
// byte slice of the line, or an owned value when it is not a contiguous part of it (a time whose
// date and clock stood more than one blank apart, a tid of "-", an app from the process map).
struct LogEntryFields
{
    struct Slice
    {
        qsizetype begin = 0;
        qsizetype size = 0;
    };
    std::array<Slice, LogEntry::FieldCount - 1> slices{};
    std::array<QByteArray, LogEntry::FieldCount - 1> owned{};
    quint8 ownedMask = 0;

    static constexpr int index(LogEntry::Field field) { return int(field) - 1; }
    void setSlice(LogEntry::Field field, qsizetype begin, qsizetype size)
    {
        slices[size_t(index(field))] = {begin, size};
        ownedMask = quint8(ownedMask & ~(1u << index(field)));
    }
    void setOwned(LogEntry::Field field, QByteArray value)
    {
        owned[size_t(index(field))] = std::move(value);
        ownedMask = quint8(ownedMask | (1u << index(field)));
    }
    bool isOwned(LogEntry::Field field) const { return ownedMask & (1u << index(field)); }
    // Back to the state of a fresh object, cheaper than assigning one: the parse path reuses one.
    void reset()
    {
        for (Slice &slice : slices) // element stores: zeroing the array whole became a slow `rep stos`
            slice = {};
        for (QByteArray &value : owned) {
            if (!value.isNull())
                value = QByteArray();
        }
        ownedMask = 0;
    }
    QByteArrayView view(QByteArrayView line, LogEntry::Field field) const
    {
        const auto i = size_t(index(field));
        if (isOwned(field))
            return owned[i];
        return line.sliced(slices[i].begin, slices[i].size);
    }
};

// Makes many entries that share one UTF-8 buffer (a loaded file). Rows that fit the compact layout
// cost 28 bytes plus the handle; others keep their own copies. Not thread-safe; one builder per
// thread, several builders may share the same buffer.
class LogEntryBlockBuilder
{
public:
    explicit LogEntryBlockBuilder(QByteArray buffer);
    ~LogEntryBlockBuilder();
    LogEntryBlockBuilder(const LogEntryBlockBuilder &) = delete;
    LogEntryBlockBuilder &operator=(const LogEntryBlockBuilder &) = delete;

    // lineStart is the byte offset of the line in the buffer; the slices are relative to it.
    void addRow(qsizetype lineStart, const LogEntryFields &fields);
    void reserve(qsizetype rows);
    qsizetype size() const;
    // Appends the rows as entries numbered firstIdx, firstIdx + 1, ...; the builder is empty after.
    void appendTo(QList<LogEntry> &out, quint64 firstIdx);

private:
    struct Impl;
    Impl *m_impl;
};
