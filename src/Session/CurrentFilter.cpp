// SPDX-License-Identifier: MIT
#include "Session/CurrentFilter.h"

#include <memory>

namespace {

std::atomic<quint64> g_versions{0};

} // namespace

CurrentFilter::CurrentFilter()
{
    set(Filter()); // a version of its own
}

Filter CurrentFilter::get() const
{
    std::lock_guard lock(m_mutex);
    return m_filter;
}

void CurrentFilter::set(const Filter &filter)
{
    std::lock_guard lock(m_mutex);
    m_filter = filter;
    m_version.store(g_versions.fetch_add(1) + 1, std::memory_order_release);
}

FilterEvaluator *CurrentFilter::evaluatorForThisThread() const
{
    thread_local quint64 cachedVersion = 0;
    thread_local std::unique_ptr<FilterEvaluator> cached;
    if (m_version.load(std::memory_order_acquire) != cachedVersion) {
        std::lock_guard lock(m_mutex);
        cached = m_filter.isNull() ? nullptr : std::make_unique<FilterEvaluator>(m_filter);
        cachedVersion = m_version.load(std::memory_order_relaxed);
    }
    return cached.get();
}
