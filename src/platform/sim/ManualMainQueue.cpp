#include "platform/sim/ManualMainQueue.h"

namespace pw::sim {

ManualMainQueue::ManualMainQueue(VirtualClock& clock)
    : clock_(clock), mainThread_(std::this_thread::get_id()) {}

void ManualMainQueue::post(Task task) { postAfter(std::chrono::milliseconds(0), std::move(task)); }

void ManualMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.emplace(Key{clock_.now() + delay, sequence_++}, std::move(task));
    }
    posted_.notify_all();
}

bool ManualMainQueue::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

bool ManualMainQueue::popDue(Task& task) {
    std::lock_guard lock(mutex_);
    if (tasks_.empty()) return false;
    auto first = tasks_.begin();
    if (first->first.first > clock_.now()) return false;
    task = std::move(first->second);
    tasks_.erase(first);
    return true;
}

std::size_t ManualMainQueue::runPending() {
    std::size_t ran = 0;
    Task task;
    while (popDue(task)) {
        task();
        ++ran;
    }
    return ran;
}

std::size_t ManualMainQueue::advance(std::chrono::milliseconds duration) {
    const auto target = clock_.now() + duration;
    std::size_t ran = runPending();
    for (;;) {
        platform::Clock::TimePoint due;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty() || tasks_.begin()->first.first > target) break;
            due = tasks_.begin()->first.first;
        }
        clock_.advanceTo(due);
        ran += runPending();
    }
    // A worker sleeping on the clock meanwhile may have moved it past the target: checking
    // and setting apart would move it back, and a monitor's quiet time with it.
    clock_.advanceTo(target);
    return ran + runPending();
}

std::size_t ManualMainQueue::runUntilIdle() {
    std::size_t ran = runPending();
    for (;;) {
        platform::Clock::TimePoint due;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty()) break;
            due = tasks_.begin()->first.first;
        }
        clock_.advanceTo(due);
        ran += runPending();
    }
    return ran;
}

std::size_t ManualMainQueue::waitAndRun(std::chrono::milliseconds timeout) {
    {
        std::unique_lock lock(mutex_);
        posted_.wait_for(lock, timeout, [this] {
            return !tasks_.empty() && tasks_.begin()->first.first <= clock_.now();
        });
    }
    return runPending();
}

std::size_t ManualMainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
}

} // namespace pw::sim
