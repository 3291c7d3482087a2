#include "platform/posix/LoopMainQueue.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <vector>

namespace pw::platform {
namespace {

TEST(LoopMainQueue, RunsPostedWorkOnTheRunningThreadInOrderUntilStopped) {
    LoopMainQueue queue;
    std::vector<int> order;
    bool allOnMain = true;
    std::thread producer([&] {
        for (int i = 0; i < 50; ++i)
            queue.post([&, i] {
                allOnMain = allOnMain && queue.isMainThread();
                order.push_back(i);
            });
        queue.post([&] { queue.stop(); });
    });
    queue.run();
    producer.join();
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_TRUE(allOnMain);
}

TEST(LoopMainQueue, DelayedWorkWaitsItsTurn) {
    LoopMainQueue queue;
    queue.postAfter(std::chrono::hours(1), [] { FAIL() << "ran an hour early"; });
    bool ran = false;
    queue.post([&] { ran = true; });
    EXPECT_EQ(queue.runPending(), 1u);
    EXPECT_TRUE(ran);
}

} // namespace
} // namespace pw::platform
