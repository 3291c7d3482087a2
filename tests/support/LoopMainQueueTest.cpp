#include "platform/posix/LoopMainQueue.h"

#include <gtest/gtest.h>

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
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
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
