#include "support/SerialQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/WeakOwner.h"

namespace pw {
namespace {

TEST(SerialQueue, RunsTasksInOrderFromManyThreadsOneAtATime) {
    SerialQueue queue("com.panelwright.test");
    std::vector<int> seen;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < 100; ++i) {
                queue.async([&, p, i] {
                    if (inside.fetch_add(1) != 0) overlapped = true;
                    seen.push_back(p * 1000 + i);
                    inside.fetch_sub(1);
                });
            }
        });
    }
    for (auto& t : producers) t.join();
    queue.sync([] {});
    ASSERT_EQ(seen.size(), 400u);
    EXPECT_FALSE(overlapped);
    // Per producer, the order of submission is kept.
    for (int p = 0; p < 4; ++p) {
        int last = -1;
        for (int v : seen)
            if (v / 1000 == p) {
                EXPECT_GT(v % 1000, last);
                last = v % 1000;
            }
    }
}

TEST(SerialQueue, NamesItsThreadAfterTheLabel) {
    SerialQueue queue("com.panelwright.globalDDCQueue");
    std::string label, osName;
    queue.sync([&] {
        label = SerialQueue::currentLabel();
        char buffer[32] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof buffer);
        osName = buffer;
    });
    EXPECT_EQ(label, "com.panelwright.globalDDCQueue");
    EXPECT_EQ(osName, "globalDDCQueue");
    EXPECT_EQ(SerialQueue::currentLabel(), "");
}

TEST(SerialQueue, SyncFromItsOwnThreadRunsInlineAndResultsComeBack) {
    SerialQueue queue("com.panelwright.test");
    int value = queue.syncResult([&] { return queue.syncResult([] { return 41; }) + 1; });
    EXPECT_EQ(value, 42);
}

TEST(SerialQueue, DestructionRunsWhatWasQueued) {
    std::atomic<int> ran{0};
    {
        SerialQueue queue("com.panelwright.test");
        for (int i = 0; i < 10; ++i) queue.async([&] { ++ran; });
    }
    EXPECT_EQ(ran, 10);
}

TEST(WeakOwner, WorkEndsWithoutEffectWhenTheOwnerIsGone) {
    struct Owner {
        int calls = 0;
    };
    auto owner = std::make_shared<Owner>();
    auto task = weakly(owner, [](Owner& o, int n) { o.calls += n; });
    task(2);
    EXPECT_EQ(owner->calls, 2);
    std::weak_ptr<Owner> watch = owner;
    owner.reset();
    task(5); // must not touch freed memory (asan would say)
    EXPECT_TRUE(watch.expired());
}

} // namespace
} // namespace pw

namespace pw {
namespace {

// A queue its own task destroys cannot join its worker there: the worker runs what was
// still queued, and the teardown's `joinOrphans` joins it (a worker left running would
// outlive what its tasks use).
// Marks, as its thread ends, that the thread has ended.
struct EndMark {
    std::atomic<bool>* ended = nullptr;
    ~EndMark() {
        if (ended) ended->store(true);
    }
};
thread_local EndMark mark;

TEST(SerialQueue, ADestroyedQueueFromItsOwnTaskFinishesItsWorkAndIsJoinedLater) {
    std::atomic<bool> threadEnded{false};
    std::promise<void> finished;
    auto* queue = new SerialQueue("com.panelwright.test");
    queue->async([queue, &finished, &threadEnded] {
        mark.ended = &threadEnded;
        queue->async([&finished] { finished.set_value(); }); // still queued at the delete
        delete queue;
    });
    EXPECT_EQ(finished.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(SerialQueue::joinOrphans(), 1u);
    EXPECT_TRUE(threadEnded.load()); // joined: its thread-local state is gone
    EXPECT_EQ(SerialQueue::joinOrphans(), 0u);
}

} // namespace
} // namespace pw
