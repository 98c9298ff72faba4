// SPDX-License-Identifier: MIT
#include "Helpers/MainThread.h"

#include "support/LogCapture.h"

#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

TEST(MainThread, RunOnMainThreadIsQueuedFromAnyThreadAndRunsThereInOrder)
{
    EXPECT_TRUE(assertMainThread());
    std::vector<int> order;
    runOnMainThread([&] { order.push_back(-1); });
    EXPECT_TRUE(order.empty()); // not run inline, even on the main thread
    std::atomic<bool> allOnMain{true};
    std::thread worker([&] {
        for (int i = 0; i < 3; ++i) {
            runOnMainThread([&, i] {
                allOnMain = allOnMain && isMainThread();
                order.push_back(i);
            });
        }
    });
    worker.join();
    EXPECT_TRUE(QTest::qWaitFor([&] { return order.size() == 4; }, 5000));
    EXPECT_EQ(order, (std::vector<int>{-1, 0, 1, 2}));
    EXPECT_TRUE(allOnMain);
}

TEST(MainThread, RunOnMainThreadAndWaitReturnsAfterTheWork)
{
    // On the main thread: inline.
    bool ran = false;
    runOnMainThreadAndWait([&] { ran = true; });
    EXPECT_TRUE(ran);

    // From a worker: the work has run on the main thread by the time the call returns.
    std::atomic<bool> sawResult{false};
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        bool ranOnMain = false;
        runOnMainThreadAndWait([&] { ranOnMain = isMainThread(); });
        sawResult = ranOnMain;
        finished = true;
    });
    // The main thread must keep its event loop turning for the worker to get through.
    EXPECT_TRUE(QTest::qWaitFor([&] { return finished.load(); }, 5000));
    worker.join();
    EXPECT_TRUE(sawResult);
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
