// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"

#include <atomic>
#include <mutex>

// The datasource's current filter: set by the whole-log filter job, read by every live line without
// the log lock. Its mutex is a leaf (nothing else is taken under it) and guards only the handle,
// which is copied out, never evaluated under it.
class CurrentFilter
{
public:
    CurrentFilter();

    Filter get() const;
    void set(const Filter &filter);

    // This thread's evaluator of the current filter, null without one; valid until the next call on
    // this thread. The live path asks once per run of lines: refreshed only when the filter changed,
    // it spares each line the mutex, the reference counting and the evaluator's text buffers.
    FilterEvaluator *evaluatorForThisThread() const;

private:
    mutable std::mutex m_mutex;
    Filter m_filter;
    // Unique across every CurrentFilter (a global sequence), so a per-thread cache never mistakes
    // one datasource's filter for another's.
    std::atomic<quint64> m_version{0};
};
