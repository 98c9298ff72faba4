// SPDX-License-Identifier: MIT
#include "Log/LogEntry.h"

#include "Log/RecordPool.h"

#include <QAnyStringView>
#include <QHash>
#include <QMutex>
#include <QUtf8StringView>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>

#include <sys/mman.h>

namespace {

constexpr int kStored = LogEntry::FieldCount - 1; // every field but idx

struct Patch
{
    QString app;
    QString note;
    bool hasApp = false;
    bool hasNote = false;
};

// Values written after creation. Created once per record on the first write and never freed
// before the record, so a reader that saw the pointer may lock it.
struct Overrides
{
    QMutex mutex;
    QHash<quint32, Patch> patches;
};

// Compact row of a file block: offsets relative to the line start. Fields that do not fit go to
// the block's extras.
struct Row
{
    quint32 start;
    quint32 textLen;
    quint16 textOff, nameOff, nameLen;
    quint8 timeOff, timeLen, appOff, appLen, pidOff, pidLen, tidOff, tidLen, typeOff, typeLen;
    quint8 flags;
};
static_assert(sizeof(Row) == 28);
constexpr quint8 RowExtra = 1;
constexpr quint8 RowTidDash = 2;

constexpr QByteArrayView kDash("-");

} // namespace

struct LogEntry::Record
{
    enum Kind : quint8 { Single, Block };
    explicit Record(Kind k) : kind(k) {}
    std::atomic<int> ref{1};
    Kind kind;
    std::atomic<Overrides *> overrides{nullptr};

    Overrides *ensureOverrides()
    {
        Overrides *o = overrides.load(std::memory_order_acquire);
        if (o)
            return o;
        auto *fresh = new Overrides;
        if (overrides.compare_exchange_strong(o, fresh, std::memory_order_acq_rel))
            return fresh;
        delete fresh; // another thread installed one first; o now holds it
        return o;
    }
    void destroy();
};

namespace {

// One entry that owns its bytes: the eight stored fields concatenated, ends[i] marking field i's end.
struct SingleRecord : LogEntry::Record
{
    SingleRecord() : Record(Single) {}
    quint64 idx = 0;
    std::array<quint32, kStored> ends{};
    const char *bytes() const { return reinterpret_cast<const char *>(this + 1); }
    char *bytes() { return reinterpret_cast<char *>(this + 1); }
    QByteArrayView field(int i) const
    {
        const quint32 b = i == 0 ? 0 : ends[size_t(i - 1)];
        return QByteArrayView(bytes() + b, qsizetype(ends[size_t(i)] - b));
    }

    static SingleRecord *make(quint64 idx, const std::array<QByteArrayView, kStored> &values)
    {
        size_t total = 0;
        for (const auto &v : values)
            total += size_t(v.size());
        void *mem = RecordPool::allocate(sizeof(SingleRecord) + total);
        auto *r = new (mem) SingleRecord;
        r->idx = idx;
        quint32 pos = 0;
        for (int i = 0; i < kStored; ++i) {
            const auto &v = values[size_t(i)];
            if (!v.isEmpty())
                std::memcpy(r->bytes() + pos, v.data(), size_t(v.size()));
            pos += quint32(v.size());
            r->ends[size_t(i)] = pos;
        }
        return r;
    }
};

struct BlockRecord : LogEntry::Record
{
    BlockRecord() : Record(Block) {}
    quint64 baseIdx = 0;
    QByteArray buffer;
    std::vector<Row> rows;
    // Rows flagged RowExtra, sorted by row number, with all eight values.
    std::vector<std::pair<quint32, std::array<QByteArray, kStored>>> extras;

    QByteArrayView field(quint32 rowNumber, int i) const
    {
        const Row &r = rows[rowNumber];
        if (r.flags & RowExtra) {
            auto it = std::lower_bound(extras.begin(), extras.end(), rowNumber,
                                       [](const auto &e, quint32 n) { return e.first < n; });
            return it->second[size_t(i)];
        }
        const char *line = buffer.constData() + r.start;
        switch (LogEntry::Field(i + 1)) {
        case LogEntry::Time:
            return {line + r.timeOff, r.timeLen};
        case LogEntry::App:
            return {line + r.appOff, r.appLen};
        case LogEntry::Pid:
            return {line + r.pidOff, r.pidLen};
        case LogEntry::Tid:
            return (r.flags & RowTidDash) ? kDash : QByteArrayView(line + r.tidOff, r.tidLen);
        case LogEntry::Type:
            return {line + r.typeOff, r.typeLen};
        case LogEntry::Name:
            return {line + r.nameOff, r.nameLen};
        case LogEntry::Text:
            return {line + r.textOff, qsizetype(r.textLen)};
        default:
            return {};
        }
    }
};

} // namespace

void LogEntry::Record::destroy()
{
    delete overrides.load(std::memory_order_acquire);
    if (kind == Single) {
        auto *s = static_cast<SingleRecord *>(this);
        const std::size_t size = sizeof(SingleRecord) + s->ends.back();
        s->~SingleRecord();
        RecordPool::deallocate(s, size);
    } else {
        delete static_cast<BlockRecord *>(this);
    }
}

const QStringList &LogEntry::keysArray()
{
    static const QStringList keys{QStringLiteral("idx"),  QStringLiteral("time"), QStringLiteral("app"),
                                  QStringLiteral("pid"),  QStringLiteral("tid"),  QStringLiteral("type"),
                                  QStringLiteral("name"), QStringLiteral("text"), QStringLiteral("note")};
    return keys;
}

std::optional<LogEntry::Field> LogEntry::fieldForKey(QStringView key)
{
    const auto &keys = keysArray();
    for (int i = 0; i < FieldCount; ++i) {
        if (key == keys[i])
            return Field(i);
    }
    return std::nullopt;
}

LogEntry LogEntry::create(quint64 idx, const std::array<QString, FieldCount - 1> &fields)
{
    std::array<QByteArray, kStored> utf8;
    std::array<QByteArrayView, kStored> views;
    for (size_t i = 0; i < utf8.size(); ++i) {
        utf8[i] = fields[i].toUtf8();
        views[i] = utf8[i];
    }
    return LogEntry(SingleRecord::make(idx, views), 0);
}

LogEntry LogEntry::fromLine(quint64 idx, QByteArrayView utf8Line, const LogEntryFields &fields)
{
    std::array<QByteArrayView, kStored> views;
    for (int i = 0; i < kStored; ++i)
        views[size_t(i)] = fields.view(utf8Line, Field(i + 1));
    return LogEntry(SingleRecord::make(idx, views), 0);
}

LogEntry::LogEntry(const LogEntry &other) noexcept : m_d(other.m_d), m_row(other.m_row)
{
    if (m_d)
        m_d->ref.fetch_add(1, std::memory_order_relaxed);
}

LogEntry::LogEntry(LogEntry &&other) noexcept : m_d(other.m_d), m_row(other.m_row)
{
    other.m_d = nullptr;
}

LogEntry &LogEntry::operator=(const LogEntry &other) noexcept
{
    LogEntry copy(other);
    std::swap(m_d, copy.m_d);
    std::swap(m_row, copy.m_row);
    return *this;
}

LogEntry &LogEntry::operator=(LogEntry &&other) noexcept
{
    LogEntry moved(std::move(other));
    std::swap(m_d, moved.m_d);
    std::swap(m_row, moved.m_row);
    return *this;
}

void LogEntry::prefetch() const
{
    // The header a release touches (count, overrides, sizes) may straddle two cache lines.
    const char *header = reinterpret_cast<const char *>(m_d);
    __builtin_prefetch(header, 1);
    __builtin_prefetch(header + sizeof(SingleRecord) - 1, 1);
}

LogEntry::~LogEntry()
{
    if (m_d && m_d->ref.fetch_sub(1, std::memory_order_acq_rel) == 1)
        m_d->destroy();
}

quint64 LogEntry::idx() const
{
    if (!m_d)
        return 0;
    if (m_d->kind == Record::Single)
        return static_cast<const SingleRecord *>(m_d)->idx;
    return static_cast<const BlockRecord *>(m_d)->baseIdx + m_row;
}

bool LogEntry::rawUtf8(Field field, QByteArrayView *out, QString *overrideValue) const
{
    if (!m_d || field == Idx) {
        *out = {};
        return true;
    }
    if (field == App || field == Note) {
        if (Overrides *o = m_d->overrides.load(std::memory_order_acquire)) {
            QMutexLocker lock(&o->mutex);
            auto it = o->patches.constFind(m_row);
            if (it != o->patches.cend()) {
                if (field == App && it->hasApp) {
                    *overrideValue = it->app;
                    return false;
                }
                if (field == Note && it->hasNote) {
                    *overrideValue = it->note;
                    return false;
                }
            }
        }
    }
    const int i = int(field) - 1;
    if (m_d->kind == Record::Single)
        *out = static_cast<const SingleRecord *>(m_d)->field(i);
    else
        *out = static_cast<const BlockRecord *>(m_d)->field(m_row, i);
    return true;
}

bool LogEntry::storedUtf8(Field field, QByteArrayView *out) const
{
    if (field == Idx)
        return false;
    QString overridden;
    return rawUtf8(field, out, &overridden);
}

QString LogEntry::value(Field field) const
{
    if (field == Idx)
        return m_d ? QString::number(idx()) : QString();
    QByteArrayView raw;
    QString patched;
    if (!rawUtf8(field, &raw, &patched))
        return patched;
    return QString::fromUtf8(raw);
}

QByteArray LogEntry::utf8Value(Field field) const
{
    if (field == Idx)
        return m_d ? QByteArray::number(idx()) : QByteArray();
    QByteArrayView raw;
    QString patched;
    if (!rawUtf8(field, &raw, &patched))
        return patched.toUtf8();
    return raw.toByteArray();
}

void LogEntry::appendValue(Field field, QString &out) const
{
    if (field == Idx) {
        if (m_d)
            out += QString::number(idx());
        return;
    }
    QByteArrayView raw;
    QString patched;
    if (!rawUtf8(field, &raw, &patched))
        out += patched;
    else
        out += QString::fromUtf8(raw);
}

bool LogEntry::fieldEquals(Field field, QStringView text, Qt::CaseSensitivity cs) const
{
    if (field == Idx)
        return QAnyStringView::compare(value(Idx), text, cs) == 0;
    QByteArrayView raw;
    QString patched;
    if (!rawUtf8(field, &raw, &patched))
        return QAnyStringView::compare(patched, text, cs) == 0;
    return QAnyStringView::compare(QUtf8StringView(raw), text, cs) == 0;
}

bool LogEntry::fieldIsEmpty(Field field) const
{
    if (field == Idx)
        return m_d == nullptr;
    QByteArrayView raw;
    QString patched;
    if (!rawUtf8(field, &raw, &patched))
        return patched.isEmpty();
    return raw.isEmpty();
}

void LogEntry::setOverride(Field field, const QString &value) const
{
    if (!m_d)
        return;
    Overrides *o = m_d->ensureOverrides();
    QMutexLocker lock(&o->mutex);
    Patch &p = o->patches[m_row];
    if (field == App) {
        p.app = value;
        p.hasApp = true;
    } else {
        p.note = value;
        p.hasNote = true;
    }
}

void LogEntry::setApp(const QString &app) const
{
    setOverride(App, app);
}

void LogEntry::setNote(const QString &note) const
{
    setOverride(Note, note);
}

// ---------------------------------------------------------------------------------------------

struct LogEntryBlockBuilder::Impl
{
    BlockRecord *block = nullptr;
};

LogEntryBlockBuilder::LogEntryBlockBuilder(QByteArray buffer) : m_impl(new Impl)
{
    m_impl->block = new BlockRecord;
    m_impl->block->buffer = std::move(buffer);
}

LogEntryBlockBuilder::~LogEntryBlockBuilder()
{
    if (m_impl->block)
        m_impl->block->destroy();
    delete m_impl;
}

void LogEntryBlockBuilder::reserve(qsizetype rows)
{
    auto &v = m_impl->block->rows;
    v.reserve(size_t(rows));
    // 2 MiB pages for the row table: far fewer page faults when it is filled (a hint only).
    constexpr quintptr huge = quintptr(2) << 20;
    const auto begin = (quintptr(v.data()) + huge - 1) & ~(huge - 1);
    const auto end = (quintptr(v.data()) + quintptr(v.capacity() * sizeof(Row))) & ~(huge - 1);
    if (end > begin)
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
}

qsizetype LogEntryBlockBuilder::size() const
{
    return qsizetype(m_impl->block->rows.size());
}

namespace {

template <typename T> bool fits(qsizetype v)
{
    return v >= 0 && v <= qsizetype(std::numeric_limits<T>::max());
}

} // namespace

void LogEntryBlockBuilder::addRow(qsizetype lineStart, const LogEntryFields &f)
{
    BlockRecord &b = *m_impl->block;
    Row r{};
    bool compact = fits<quint32>(lineStart) && !f.isOwned(LogEntry::Time) && !f.isOwned(LogEntry::App) &&
                   !f.isOwned(LogEntry::Pid) && !f.isOwned(LogEntry::Type) && !f.isOwned(LogEntry::Name) &&
                   !f.isOwned(LogEntry::Text) && !f.isOwned(LogEntry::Note) &&
                   f.slices[size_t(LogEntryFields::index(LogEntry::Note))].size == 0;
    if (compact && f.isOwned(LogEntry::Tid)) {
        if (f.owned[size_t(LogEntryFields::index(LogEntry::Tid))] == kDash)
            r.flags |= RowTidDash;
        else
            compact = false;
    }
    auto small = [&](LogEntry::Field field, quint8 &off, quint8 &len) {
        const auto &s = f.slices[size_t(LogEntryFields::index(field))];
        if (s.size == 0) {
            off = len = 0;
            return;
        }
        if (!fits<quint8>(s.begin) || !fits<quint8>(s.size)) {
            compact = false;
            return;
        }
        off = quint8(s.begin);
        len = quint8(s.size);
    };
    if (compact) {
        small(LogEntry::Time, r.timeOff, r.timeLen);
        small(LogEntry::App, r.appOff, r.appLen);
        small(LogEntry::Pid, r.pidOff, r.pidLen);
        if (!(r.flags & RowTidDash))
            small(LogEntry::Tid, r.tidOff, r.tidLen);
        small(LogEntry::Type, r.typeOff, r.typeLen);
        const auto &name = f.slices[size_t(LogEntryFields::index(LogEntry::Name))];
        const auto &text = f.slices[size_t(LogEntryFields::index(LogEntry::Text))];
        if (fits<quint16>(name.begin) && fits<quint16>(name.size) && fits<quint16>(text.begin) &&
            fits<quint32>(text.size)) {
            r.nameOff = quint16(name.size ? name.begin : 0);
            r.nameLen = quint16(name.size);
            r.textOff = quint16(text.size ? text.begin : 0);
            r.textLen = quint32(text.size);
        } else {
            compact = false;
        }
    }
    const auto rowNumber = quint32(b.rows.size());
    if (compact) {
        r.start = quint32(lineStart);
        b.rows.push_back(r);
        return;
    }
    const QByteArrayView line(b.buffer.constData() + lineStart, b.buffer.size() - lineStart);
    std::array<QByteArray, kStored> values;
    for (int i = 0; i < kStored; ++i)
        values[size_t(i)] = f.view(line, LogEntry::Field(i + 1)).toByteArray();
    Row extra{};
    extra.flags = RowExtra;
    b.rows.push_back(extra);
    b.extras.emplace_back(rowNumber, std::move(values));
}

void LogEntryBlockBuilder::appendTo(QList<LogEntry> &out, quint64 firstIdx)
{
    BlockRecord *b = m_impl->block;
    b->baseIdx = firstIdx;
    const auto n = b->rows.size();
    out.reserve(out.size() + qsizetype(n));
    if (n > 0) {
        // One reference per handle, taken at once.
        b->ref.fetch_add(int(n), std::memory_order_relaxed);
        for (size_t i = 0; i < n; ++i)
            out.append(LogEntry(b, quint32(i)));
    }
    auto *next = new BlockRecord;
    next->buffer = b->buffer;
    m_impl->block = next;
    // Drops the builder's own reference; the handles keep the block alive.
    if (b->ref.fetch_sub(1, std::memory_order_acq_rel) == 1)
        b->destroy();
}
