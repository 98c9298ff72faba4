// SPDX-License-Identifier: MIT
#include "Log/RecordPool.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <new>
#include <vector>

namespace {

constexpr std::size_t Granule = 32;
constexpr std::size_t MaxPooled = 1024;
constexpr std::size_t Classes = MaxPooled / Granule;
constexpr std::size_t CacheLimit = 512; // blocks per class a thread keeps
constexpr std::size_t Transfer = 256;   // blocks moved between a thread and the shared list at once

std::size_t classOf(std::size_t size)
{
    return (size - 1) / Granule;
}

struct Shared
{
    std::array<std::mutex, Classes> mutexes;
    std::array<std::vector<void *>, Classes> lists;
};

// Never destroyed: blocks held here stay reachable to the end, and threads that end after static
// destruction can still hand theirs back.
Shared &shared()
{
    static Shared *instance = new Shared;
    return *instance;
}

struct ThreadCache
{
    std::array<std::vector<void *>, Classes> lists;

    ~ThreadCache()
    {
        for (std::size_t c = 0; c < Classes; ++c)
            giveBack(c, lists[c].size());
    }

    void giveBack(std::size_t c, std::size_t count)
    {
        if (count == 0)
            return;
        std::vector<void *> &mine = lists[c];
        Shared &s = shared();
        std::lock_guard lock(s.mutexes[c]);
        s.lists[c].insert(s.lists[c].end(), mine.end() - std::ptrdiff_t(count), mine.end());
        mine.resize(mine.size() - count);
    }

    bool refill(std::size_t c)
    {
        Shared &s = shared();
        std::lock_guard lock(s.mutexes[c]);
        std::vector<void *> &from = s.lists[c];
        const std::size_t count = std::min(Transfer, from.size());
        lists[c].insert(lists[c].end(), from.end() - std::ptrdiff_t(count), from.end());
        from.resize(from.size() - count);
        return count > 0;
    }
};

ThreadCache &cache()
{
    thread_local ThreadCache instance;
    return instance;
}

} // namespace

void *RecordPool::allocate(std::size_t size)
{
    if (!Enabled || size == 0 || size > MaxPooled)
        return ::operator new(size);
    const std::size_t c = classOf(size);
    ThreadCache &tc = cache();
    std::vector<void *> &list = tc.lists[c];
    if (list.empty() && !tc.refill(c))
        return ::operator new((c + 1) * Granule);
    void *block = list.back();
    list.pop_back();
    // The next block of this class was freed long ago and is cold: fetch it while this one is filled.
    if (!list.empty()) {
        const char *next = static_cast<const char *>(list.back());
        for (std::size_t offset = 0; offset < (c + 1) * Granule; offset += 64)
            __builtin_prefetch(next + offset, 1);
    }
    return block;
}

void RecordPool::deallocate(void *block, std::size_t size)
{
    if (!block)
        return;
    if (!Enabled || size == 0 || size > MaxPooled) {
        ::operator delete(block);
        return;
    }
    const std::size_t c = classOf(size);
    ThreadCache &tc = cache();
    tc.lists[c].push_back(block);
    if (tc.lists[c].size() > CacheLimit)
        tc.giveBack(c, Transfer);
}
