// SPDX-License-Identifier: MIT
#include "Session/ProcessNameMap.h"

#include "Helpers/TextHelpers.h"

namespace {

std::atomic<quint64> g_generations{0};

quint64 nextGeneration()
{
    return g_generations.fetch_add(1, std::memory_order_relaxed) + 1;
}

// A pid of 1 to 15 ASCII digits packed with its length (so "0123" and "123" stay apart); 0 otherwise.
quint64 packedPid(QByteArrayView pid)
{
    if (pid.isEmpty() || pid.size() > 15)
        return 0;
    quint64 value = 0;
    for (const char c : pid) {
        if (c < '0' || c > '9')
            return 0;
        value = value * 10 + quint64(c - '0');
    }
    return (quint64(pid.size()) << 56) | value;
}

// Answers of one thread, valid while the map's generation is `generation`.
struct NameMemo
{
    quint64 generation = 0;
    QHash<quint64, QByteArray> names;
};

} // namespace

ProcessNameMap::ProcessNameMap() : m_generation(nextGeneration()) {}

void ProcessNameMap::changed()
{
    m_generation.store(nextGeneration(), std::memory_order_release);
}

QByteArrayView ProcessNameMap::nameForUtf8(QByteArrayView pid) const
{
    const quint64 key = packedPid(pid);
    if (key == 0) {
        thread_local QByteArray unusual;
        unusual = nameFor(QString::fromUtf8(pid)).toUtf8();
        return unusual;
    }
    thread_local NameMemo memo;
    // Read before the lookup: a change meanwhile gives a newer generation, which drops the memo.
    const quint64 generation = m_generation.load(std::memory_order_acquire);
    if (memo.generation != generation) {
        memo.names.clear();
        memo.generation = generation;
    } else if (const auto it = memo.names.constFind(key); it != memo.names.cend()) {
        return *it;
    }
    constexpr qsizetype MemoLimit = 4096; // pids of one device; beyond that start over
    if (memo.names.size() >= MemoLimit)
        memo.names.clear();
    return *memo.names.insert(key, nameFor(QString::fromLatin1(pid)).toUtf8());
}

std::optional<ProcessNameMap::PsLine> ProcessNameMap::parsePsLine(QStringView line)
{
    // Runs of blanks give empty pieces, as the device's column padding is not interpreted.
    const auto pieces = line.split(u' ');
    if (pieces.size() < 4)
        return std::nullopt;
    for (const QStringView piece : pieces) {
        if (!qf::isInteger(piece))
            continue;
        const QStringView name = pieces.last();
        if (name == u"<pre-initialized>")
            return std::nullopt;
        return PsLine{piece.toString(), name.toString()};
    }
    return std::nullopt;
}

QString ProcessNameMap::nameFor(const QString &pid) const
{
    std::lock_guard lock(m_mutex);
    return m_pidMap.value(pid);
}

QString ProcessNameMap::nameFor(QStringView pid) const
{
    return nameFor(pid.toString());
}

ProcessNameMap::DeviceNameResult ProcessNameMap::setDeviceName(const QString &pid, const QString &name)
{
    std::lock_guard lock(m_mutex);
    if (m_userDefinedPidMap.contains(pid))
        return DeviceNameResult::UserNameKept;
    const bool known = m_pidMap.contains(pid);
    m_pidMap.insert(pid, name);
    changed();
    return known ? DeviceNameResult::Renamed : DeviceNameResult::NewPid;
}

void ProcessNameMap::setUserName(const QString &pid, const QString &name)
{
    std::lock_guard lock(m_mutex);
    m_pidMap.insert(pid, name);
    m_userDefinedPidMap.insert(pid, name);
    changed();
}

void ProcessNameMap::resetToUserNames()
{
    std::lock_guard lock(m_mutex);
    m_pidMap = m_userDefinedPidMap;
    changed();
}

bool ProcessNameMap::beginLookup(double now)
{
    std::lock_guard lock(m_mutex);
    if (m_lookupRunning) {
        m_lookupNeeded = true;
        return false;
    }
    if (m_retryAfter && now < *m_retryAfter)
        return false;
    m_lookupTime = now;
    m_lookupRunning = true;
    m_lookupNeeded = false;
    return true;
}

bool ProcessNameMap::finishLookup()
{
    std::lock_guard lock(m_mutex);
    m_lookupRunning = false;
    m_retryAfter.reset();
    return m_lookupNeeded;
}

void ProcessNameMap::failLookup()
{
    std::lock_guard lock(m_mutex);
    if (!m_lookupRunning)
        return;
    m_lookupRunning = false;
    m_lookupNeeded = false;
    m_retryAfter = m_lookupTime.value_or(0) + retryDelay;
}

void ProcessNameMap::resetLookup()
{
    std::lock_guard lock(m_mutex);
    m_lookupRunning = false;
    m_lookupNeeded = false;
    m_lookupTime.reset();
    m_retryAfter.reset();
}

bool ProcessNameMap::lookupRunning() const
{
    std::lock_guard lock(m_mutex);
    return m_lookupRunning;
}

std::optional<double> ProcessNameMap::lookupTime() const
{
    std::lock_guard lock(m_mutex);
    return m_lookupTime;
}
