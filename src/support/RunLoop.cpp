#include "support/RunLoop.h"

#include <utility>

namespace pw {

namespace {
thread_local std::shared_ptr<RunLoop> tCurrentRunLoop;
} // namespace

std::shared_ptr<RunLoop> RunLoop::current() {
    if (!tCurrentRunLoop) tCurrentRunLoop = std::make_shared<RunLoop>();
    return tCurrentRunLoop;
}

bool RunLoop::isCurrent() const {
    return tCurrentRunLoop.get() == this;
}

void RunLoop::run() {
    std::unique_lock lock(mutex_);
    if (stopRequested_) {
        // Stopped before it ran: return at once, as the loop would have done right away.
        stopRequested_ = false;
        return;
    }
    running_ = true;
    for (;;) {
        wake_.wait(lock, [this] { return stopRequested_ || !blocks_.empty(); });
        if (stopRequested_) break;
        Block block = std::move(blocks_.front());
        blocks_.pop_front();
        lock.unlock();
        block();
        block = nullptr; // its captures die on this thread, outside the lock
        lock.lock();
    }
    stopRequested_ = false;
    running_ = false;
}

void RunLoop::stop() {
    std::deque<Block> dropped;
    {
        std::lock_guard lock(mutex_);
        stopRequested_ = true;
        dropped.swap(blocks_);
    }
    wake_.notify_all();
    // `dropped` dies here, unlocked.
}

void RunLoop::perform(Block block) {
    {
        std::lock_guard lock(mutex_);
        // Between a stop and the return of the run it ends, nothing new is taken on.
        if (!stopRequested_) {
            blocks_.push_back(std::move(block));
            block = nullptr;
        }
    }
    wake_.notify_all();
    // A dropped block dies here, unlocked.
}

void RunLoop::wakeUp() {
    wake_.notify_all();
}

bool RunLoop::isRunning() const {
    std::lock_guard lock(mutex_);
    return running_;
}

} // namespace pw
