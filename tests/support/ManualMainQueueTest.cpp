#include "platform/sim/ManualMainQueue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace pw::sim {
namespace {

using namespace std::chrono_literals;

TEST(ManualMainQueue, DelayedTasksRunWhenVirtualTimeReachesThem) {
    VirtualClock clock;
    ManualMainQueue queue(clock);
    const auto start = clock.now();
    std::vector<std::string> order;
    std::vector<platform::Clock::TimePoint> when;
    queue.postAfter(1000ms, [&] { order.push_back("late"); when.push_back(clock.now()); });
    queue.post([&] { order.push_back("now"); });
    queue.postAfter(500ms, [&] {
        order.push_back("mid");
        queue.post([&] { order.push_back("posted by mid"); });
    });

    EXPECT_EQ(queue.runPending(), 1u);
    EXPECT_EQ(queue.advance(999ms), 2u);
    EXPECT_EQ(order, (std::vector<std::string>{"now", "mid", "posted by mid"}));
    EXPECT_EQ(queue.advance(1ms), 1u);
    ASSERT_EQ(when.size(), 1u);
    EXPECT_EQ(when[0] - start, 1000ms);
    EXPECT_EQ(clock.now() - start, 1000ms);
}

TEST(ManualMainQueue, WaitsForWorkPostedFromAnotherThread) {
    VirtualClock clock;
    ManualMainQueue queue(clock);
    bool ranOnMain = false;
    std::thread worker([&] {
        EXPECT_FALSE(queue.isMainThread());
        queue.post([&] { ranOnMain = queue.isMainThread(); });
    });
    EXPECT_EQ(queue.waitAndRun(), 1u);
    worker.join();
    EXPECT_TRUE(ranOnMain);
}

TEST(VirtualClock, SleepsAdvanceTimeAndAreRecordedButAdvanceIsNot) {
    VirtualClock clock;
    const auto start = clock.now();
    clock.sleepFor(10ms);
    clock.advance(5ms);
    clock.sleepFor(20000us);
    EXPECT_EQ(clock.now() - start, 35ms);
    auto sleeps = clock.sleeps();
    ASSERT_EQ(sleeps.size(), 2u);
    EXPECT_EQ(sleeps[0].duration, 10ms);
    EXPECT_EQ(sleeps[1].duration, 20ms);
    EXPECT_EQ(sleeps[1].at - start, 15ms);
}

} // namespace
} // namespace pw::sim
