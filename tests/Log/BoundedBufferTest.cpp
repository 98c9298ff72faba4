// SPDX-License-Identifier: MIT
#include "Log/BoundedBuffer.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(BoundedBufferTest, DefaultsAndPruneAtCapacityPlusOne)
{
    BoundedBuffer buffer;
    EXPECT_EQ(buffer.capacity(), 55000u);
    EXPECT_EQ(buffer.pruneSize(), 1000u);
    for (quint64 i = 1; i < 55000; ++i)
        ASSERT_FALSE(buffer.addObject(testEntry({.idx = i})));
    EXPECT_FALSE(buffer.addObject(testEntry({.idx = 55000}))) << "exactly capacity entries may be held";
    EXPECT_EQ(buffer.count(), 55000);
    EXPECT_TRUE(buffer.addObject(testEntry({.idx = 55001})));
    EXPECT_EQ(buffer.count(), 54001);
    EXPECT_EQ(buffer.dataArray().first().idx(), 1001u) << "the entry inserted 1001st is now the oldest";
    EXPECT_EQ(buffer.lastObject().idx(), 55001u);
}

TEST(BoundedBufferTest, CapacityZeroNeverPrunes)
{
    BoundedBuffer buffer(0);
    for (quint64 i = 1; i <= 3000; ++i)
        ASSERT_FALSE(buffer.addObject(testEntry({.idx = i})));
    EXPECT_FALSE(buffer.addAllObjects(testEntries(1, 70000)));
    EXPECT_EQ(buffer.count(), 70000);
}

TEST(BoundedBufferTest, AddAllReplacesAndPrunesOneBlockOnly)
{
    BoundedBuffer buffer;
    buffer.addObject(testEntry({.idx = 999999}));
    EXPECT_TRUE(buffer.addAllObjects(testEntries(1, 60000)));
    EXPECT_EQ(buffer.count(), 59000);
    EXPECT_EQ(buffer.dataArray().first().idx(), 1001u);
    // Still above capacity: the next insertion prunes one more block.
    EXPECT_TRUE(buffer.addObject(testEntry({.idx = 60001})));
    EXPECT_EQ(buffer.count(), 58001);
    EXPECT_FALSE(buffer.addAllObjects(testEntries(1, 10)));
    EXPECT_EQ(buffer.count(), 10);
}

TEST(BoundedBufferTest, PredicateSnapshots)
{
    BoundedBuffer buffer;
    buffer.addAllObjects(testEntries(1, 10));
    const auto even = buffer.itemsForPredicate([](const LogEntry &e) { return e.idx() % 2 == 0; });
    ASSERT_EQ(even.size(), 5);
    EXPECT_EQ(even[4].idx(), 10u);
    const auto copy = buffer.itemsForPredicate({});
    buffer.reset();
    EXPECT_EQ(copy.size(), 10) << "a snapshot is not a view";
    EXPECT_TRUE(buffer.lastObject().isNull());
}

TEST(BoundedBufferTest, SettersDoNotPruneButTheNextInsertionDoesAndResetKeepsThem)
{
    BoundedBuffer buffer(0);
    buffer.addAllObjects(testEntries(1, 3000));
    buffer.setCapacity(1500);
    buffer.setPruneSize(400);
    EXPECT_EQ(buffer.count(), 3000);
    EXPECT_TRUE(buffer.addObject(testEntry({.idx = 3001})));
    EXPECT_EQ(buffer.count(), 2601);
    buffer.reset();
    EXPECT_EQ(buffer.count(), 0);
    buffer.addAllObjects(testEntries(1, 1500));
    EXPECT_TRUE(buffer.addObject(testEntry({.idx = 1501})));
    EXPECT_EQ(buffer.count(), 1101);
}

TEST(BoundedBufferTest, CapacityBelowPruneSizeThrowsOnFirstPrune)
{
    BoundedBuffer buffer(5); // prune size stays 1000
    for (quint64 i = 1; i <= 5; ++i)
        buffer.addObject(testEntry({.idx = i}));
    EXPECT_THROW(buffer.addObject(testEntry({.idx = 6})), std::out_of_range);
}
