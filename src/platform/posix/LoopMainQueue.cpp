#include "platform/posix/LoopMainQueue.h"

namespace pw::platform {

LoopMainQueue::LoopMainQueue() : mainThread_(std::this_thread::get_id()) {}

void LoopMainQueue::post(Task task) { postAfter(std::chrono::milliseconds(0), std::move(task)); }

void LoopMainQueue::postAfter(std::chrono::milliseconds delay, Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.emplace(Key{std::chrono::steady_clock::now() + delay, sequence_++},
                       std::move(task));
    }
    wake_.notify_all();
}

bool LoopMainQueue::isMainThread() const {
    std::lock_guard lock(mutex_);
    return std::this_thread::get_id() == mainThread_;
}

std::size_t LoopMainQueue::runPending() {
    std::size_t ran = 0;
    for (;;) {
        Task task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty() || tasks_.begin()->first.first > std::chrono::steady_clock::now())
                break;
            task = std::move(tasks_.begin()->second);
            tasks_.erase(tasks_.begin());
        }
        task();
        ++ran;
    }
    return ran;
}

void LoopMainQueue::run() {
    {
        std::lock_guard lock(mutex_);
        mainThread_ = std::this_thread::get_id();
        stopping_ = false;
    }
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            for (;;) {
                if (stopping_) return;
                if (!tasks_.empty()) {
                    const auto due = tasks_.begin()->first.first;
                    if (due <= std::chrono::steady_clock::now()) break;
                    wake_.wait_until(lock, due);
                } else {
                    wake_.wait(lock);
                }
            }
            task = std::move(tasks_.begin()->second);
            tasks_.erase(tasks_.begin());
        }
        task();
    }
}

void LoopMainQueue::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
}

} // namespace pw::platform
