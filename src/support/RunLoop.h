#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace pw {

// A thread's run loop: blocks in `run` and performs the blocks handed to it, in order,
// on that thread, until `stop`. Sources (an event tap's, for one) deliver their work
// through `perform`. Every thread has at most one, made on first use by `current`.
//
// `perform`, `wakeUp` and `stop` may be called from any thread. A block performed after
// `stop` is dropped. A stopped run loop may be run again; `stop` before `run` makes the
// next `run` return at once.
class RunLoop : public std::enable_shared_from_this<RunLoop> {
public:
    using Block = std::function<void()>;

    // The calling thread's run loop (CFRunLoopGetCurrent).
    static std::shared_ptr<RunLoop> current();

    RunLoop() = default;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void run();                // CFRunLoopRun: until stopped
    void stop();               // CFRunLoopStop
    void perform(Block block); // CFRunLoopPerformBlock (common modes)
    void wakeUp();             // CFRunLoopWakeUp
    bool isRunning() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Block> blocks_;
    bool running_ = false;
    bool stopRequested_ = false;
};

} // namespace pw
