// SPDX-License-Identifier: MIT
#include "Session/ProcessNamer.h"

#include "Helpers/Clock.h"
#include "Helpers/Logger.h"
#include "Session/LogStore.h"

ProcessNamer::ProcessNamer(const Clock &clock) : m_clock(clock) {}

std::optional<bool> ProcessNamer::requestLookups(int count)
{
    bool start = false;
    const double now = m_clock.nowSeconds();
    // The first request may start a lookup; every further one finds it running and asks for another.
    for (int i = 0; i < count; ++i)
        start = m_names.beginLookup(now) || start;
    if (!start)
        return std::nullopt;
    return m_addDashA.load();
}

ProcessNamer::Outcome ProcessNamer::applyAnswer(const std::optional<QString> &output, LogStore &store)
{
    Outcome outcome;
    const QString text = output.value_or(QString());
    const ProcessListAnswer answer = ProcessListAnswer::parse(text);
    if (answer.isShort) {
        // A short answer is an error of the command ("bad pid" for "-A" on old devices): switch forms.
        QF_LOG(QStringLiteral("PID look up %1: ").arg(text));
        const bool addDash = !m_addDashA.load();
        m_addDashA = addDash;
        QF_LOG(QStringLiteral("Set addDashAforPS: %1 ").arg(addDash ? QStringLiteral("YES") : QStringLiteral("NO")));
        m_names.resetLookup();
        outcome.lookupWithDashA = requestLookups();
        return outcome;
    }

    for (const ProcessNameMap::PsLine &ps : answer.processes) {
        if (m_names.setDeviceName(ps.pid, ps.name) == ProcessNameMap::DeviceNameResult::NewPid)
            store.nameWaiting(ps.pid, ps.name);
    }
    if (answer.abort != ProcessListAnswer::Abort::None) {
        QF_LOG(answer.abort == ProcessListAnswer::Abort::MultipleDevices ? QStringLiteral("Multiple devices. Abort. (1)")
                                                                         : QStringLiteral("Device not found. Abort. (1)"));
        outcome.abort = answer.abort;
        return outcome;
    }

    // Pids seen before this lookup started and still unnamed are gone from the device; their
    // entries keep an empty "app".
    if (const std::optional<double> lookupTime = m_names.lookupTime())
        store.giveUpWaitingBefore(*lookupTime);
    if (m_names.finishLookup())
        outcome.lookupWithDashA = requestLookups();
    return outcome;
}

void ProcessNamer::lookupFailed(const QString &reason)
{
    // Departure: a failed lookup used to stay "running" until the log was cleared, so after a
    // reconnect no process was ever named again. It ends here; retries are spaced by 5 s.
    QF_LOG(QStringLiteral("process list lookup failed: %1").arg(reason));
    m_names.failLookup();
}

void ProcessNamer::endOfStream()
{
    m_addDashA = true;
    m_names.resetToUserNames();
}

void ProcessNamer::reset()
{
    m_names.resetToUserNames();
    m_names.resetLookup();
}
