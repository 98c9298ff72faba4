// SPDX-License-Identifier: MIT
#include "ProcessNameMap.h"

#include "Helpers/TextHelpers.h"

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
    return known ? DeviceNameResult::Renamed : DeviceNameResult::NewPid;
}

void ProcessNameMap::setUserName(const QString &pid, const QString &name)
{
    std::lock_guard lock(m_mutex);
    m_pidMap.insert(pid, name);
    m_userDefinedPidMap.insert(pid, name);
}

void ProcessNameMap::resetToUserNames()
{
    std::lock_guard lock(m_mutex);
    m_pidMap = m_userDefinedPidMap;
}

bool ProcessNameMap::beginLookup(double now)
{
    std::lock_guard lock(m_mutex);
    if (m_lookupRunning) {
        m_lookupNeeded = true;
        return false;
    }
    m_lookupTime = now;
    m_lookupRunning = true;
    m_lookupNeeded = false;
    return true;
}

bool ProcessNameMap::finishLookup()
{
    std::lock_guard lock(m_mutex);
    m_lookupRunning = false;
    return m_lookupNeeded;
}

void ProcessNameMap::resetLookup()
{
    std::lock_guard lock(m_mutex);
    m_lookupRunning = false;
    m_lookupNeeded = false;
    m_lookupTime.reset();
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
