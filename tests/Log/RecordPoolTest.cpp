// SPDX-License-Identifier: MIT
#include "Log/RecordPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace {

struct Block
{
    unsigned char *data;
    std::size_t size;
    unsigned char fill;
};

Block take(std::size_t size, unsigned char fill)
{
    auto *data = static_cast<unsigned char *>(RecordPool::allocate(size));
    std::memset(data, fill, size);
    return {data, size, fill};
}

bool intact(const Block &b)
{
    return std::all_of(b.data, b.data + b.size, [&b](unsigned char c) { return c == b.fill; });
}

} // namespace

TEST(RecordPool, LiveBlocksNeverOverlapAndKeepTheirBytesWhateverThreadFreesThem)
{
    // The log's pattern: one thread allocates, blocks are freed in bulk and on other threads (a
    // table snapshot dropping the last reference), and the memory comes back around.
    std::mt19937 rng(5);
    std::vector<Block> live;
    for (int round = 0; round < 40; ++round) {
        for (int i = 0; i < 700; ++i) {
            const std::size_t size = 1 + rng() % 1400; // across every class and beyond the largest
            live.push_back(take(size, static_cast<unsigned char>(rng())));
        }
        // No two live blocks share a byte.
        std::map<const unsigned char *, std::size_t> spans;
        for (const Block &b : live)
            spans[b.data] = b.size;
        ASSERT_EQ(spans.size(), live.size());
        const unsigned char *end = nullptr;
        for (const auto &[begin, size] : spans) {
            ASSERT_TRUE(end == nullptr || begin >= end);
            end = begin + size;
        }
        for (const Block &b : live)
            ASSERT_TRUE(intact(b)) << "round " << round;
        // Free the oldest half, alternately here and on another thread.
        const std::size_t half = live.size() / 2;
        std::vector<Block> freed(live.begin(), live.begin() + std::ptrdiff_t(half));
        live.erase(live.begin(), live.begin() + std::ptrdiff_t(half));
        if (round % 2 == 0) {
            std::thread other([&] {
                for (const Block &b : freed)
                    RecordPool::deallocate(b.data, b.size);
            });
            other.join(); // the thread's own cache goes back to the shared lists as it ends
        } else {
            for (const Block &b : freed)
                RecordPool::deallocate(b.data, b.size);
        }
    }
    for (const Block &b : live)
        RecordPool::deallocate(b.data, b.size);
}

TEST(RecordPool, MemoryFreedElsewhereIsReused)
{
    // Blocks freed by an ended thread reach this one instead of growing the process.
    if (!RecordPool::Enabled)
        GTEST_SKIP() << "blocks go to the sanitizer's allocator";
    std::vector<void *> first;
    for (int i = 0; i < 2000; ++i)
        first.push_back(RecordPool::allocate(200));
    std::thread other([&] {
        for (void *p : first)
            RecordPool::deallocate(p, 200);
    });
    other.join();
    std::vector<void *> second;
    for (int i = 0; i < 2000; ++i)
        second.push_back(RecordPool::allocate(200));
    std::sort(first.begin(), first.end());
    int reused = 0;
    for (void *p : second)
        reused += std::binary_search(first.begin(), first.end(), p) ? 1 : 0;
    EXPECT_GT(reused, 1000);
    for (void *p : second)
        RecordPool::deallocate(p, 200);
}
