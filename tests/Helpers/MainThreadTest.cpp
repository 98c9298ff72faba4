// SPDX-License-Identifier: MIT
#include "Helpers/MainThread.h"

#include "support/LogCapture.h"

#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

TEST(MainThread, WorkIsQueuedFromAnyThreadInOrderAndTheWaitingFormReturnsAfterIt)
{
    EXPECT_TRUE(assertMainThread());
    std::vector<int> order;
    runOnMainThread([&] { order.push_back(-1); });        // not run inline, even on the main thread
    runOnMainThreadAndWait([&] { order.push_back(-2); }); // but the waiting form is, there
    EXPECT_EQ(order, std::vector<int>{-2});

    // From a worker: the waiting form returns once the work has run on the main thread, which must keep its
    // event loop turning for the worker to get through.
    std::atomic<bool> allOnMain{true};
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        for (int i = 0; i < 2; ++i)
            runOnMainThread([&, i] {
                allOnMain = allOnMain && isMainThread();
                order.push_back(i);
            });
        runOnMainThreadAndWait([&] { allOnMain = allOnMain && isMainThread(); });
        finished = order.size() == 4;
    });
    EXPECT_TRUE(QTest::qWaitFor([&] { return finished.load(); }, 5000));
    worker.join();
    EXPECT_EQ(order, (std::vector<int>{-2, -1, 0, 1}));
    EXPECT_TRUE(allOnMain);
}

#ifdef QT_NO_DEBUG
TEST(MainThread, AssertMainThreadElsewhereLogsAndReturnsFalseInRelease)
{
    LogCapture log;
    bool result = true;
    std::thread worker([&] { result = assertMainThread(); });
    worker.join();
    EXPECT_FALSE(result);
    EXPECT_EQ(log.lines(LogLevel::Error), QStringList{QStringLiteral("Method can only be called on main thread!")});
}
#else
TEST(MainThreadDeathTest, AssertMainThreadElsewhereAbortsInDebug)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            std::thread worker([] { assertMainThread(); });
            worker.join();
        },
        "Method can only be called on main thread!");
}
#endif
