#include "support/RunLoop.h"

#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace pw {
namespace {

// Hands back the run loop of a fresh thread that is running it, and that thread.
struct LoopThread {
    std::shared_ptr<RunLoop> loop;
    std::thread thread;

    LoopThread() {
        std::promise<std::shared_ptr<RunLoop>> made;
        auto ready = made.get_future();
        thread = std::thread([&made] {
            auto own = RunLoop::current();
            own->perform([&made, own] { made.set_value(own); }); // runs once inside run()
            own->run();
        });
        loop = ready.get();
    }
    ~LoopThread() {
        loop->stop();
        if (thread.joinable()) thread.join();
    }
};

TEST(RunLoop, PerformsBlocksInOrderOnItsOwnThreadUntilStopped) {
    LoopThread worker;
    EXPECT_TRUE(worker.loop->isRunning());
    EXPECT_FALSE(worker.loop->isCurrent());
    EXPECT_NE(RunLoop::current(), worker.loop);
    EXPECT_EQ(RunLoop::current(), RunLoop::current()); // one per thread

    std::mutex mutex;
    std::vector<int> order;
    std::vector<bool> onLoop;
    std::vector<std::thread> posters;
    for (int p = 0; p < 3; ++p) {
        posters.emplace_back([&, p] {
            for (int i = 0; i < 50; ++i)
                worker.loop->perform([&, p, i, loop = worker.loop] {
                    std::lock_guard lock(mutex);
                    order.push_back(p * 100 + i);
                    onLoop.push_back(loop->isCurrent());
                });
        });
    }
    for (auto& t : posters)
        t.join();
    std::promise<void> flushed;
    worker.loop->perform([&] { flushed.set_value(); });
    worker.loop->wakeUp();
    flushed.get_future().get();

    std::lock_guard lock(mutex);
    ASSERT_EQ(order.size(), 150u);
    for (int p = 0; p < 3; ++p) { // each poster's blocks keep their order
        int last = -1;
        for (int v : order)
            if (v / 100 == p) EXPECT_GT(v, last), last = v;
    }
    EXPECT_EQ(std::count(onLoop.begin(), onLoop.end(), false), 0);

    worker.loop->stop();
    worker.thread.join();
    EXPECT_FALSE(worker.loop->isRunning());
}

TEST(RunLoop, StopBeforeRunReturnsAtOnceDropsLateBlocksAndCanRunAgain) {
    auto loop = std::make_shared<RunLoop>();
    auto token = std::make_shared<int>(0);
    loop->stop();
    loop->perform([token] { ++*token; }); // after stop: dropped, captures released
    EXPECT_EQ(token.use_count(), 1);
    loop->run(); // returns at once
    EXPECT_EQ(*token, 0);

    // Running again works: blocks performed before run are kept for it.
    std::thread runner([loop] { loop->run(); });
    std::promise<void> ran;
    loop->perform([&] { ran.set_value(); });
    ran.get_future().get();
    loop->stop();
    runner.join();
    EXPECT_FALSE(loop->isRunning());
}

// A dropped block may do work as it dies (a simulated event moving on to the next tap);
// that work may use the very run loop that dropped it.
TEST(RunLoop, DroppedBlockMayCallBackIntoTheRunLoopAsItDies) {
    auto loop = std::make_shared<RunLoop>();
    struct Reentrant {
        Reentrant(std::shared_ptr<RunLoop> l, bool* d) : loop(std::move(l)), died(d) {}
        std::shared_ptr<RunLoop> loop;
        bool* died;
        ~Reentrant() {
            loop->perform([] {});
            loop->wakeUp();
            *died = true;
        }
    };
    bool diedWhileStopped = false;
    bool diedPending = false;
    // Pending when stop comes.
    loop->perform([r = std::make_shared<Reentrant>(loop, &diedPending)] {});
    loop->stop();
    EXPECT_TRUE(diedPending);
    // Performed after the stop.
    loop->perform([r = std::make_shared<Reentrant>(loop, &diedWhileStopped)] {});
    EXPECT_TRUE(diedWhileStopped);
}

} // namespace
} // namespace pw
