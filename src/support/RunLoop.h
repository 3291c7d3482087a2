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
// `perform`, `wakeUp` and `stop` may be called from any thread. `stop` drops the blocks
// not yet performed, and so is every block handed over until the run it ends has
// returned. A stopped run loop may be run again; `stop` before `run` makes the next `run`
// return at once.
//
// Dropping a block destroys it outside the run loop's lock, so a block whose destructor
// does work of its own (hands an event on, say) may call back into this run loop.
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

    // True when the calling thread is the one this run loop belongs to.
    bool isCurrent() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Block> blocks_;
    bool running_ = false;
    bool stopRequested_ = false; // the current (or next) run returns; blocks are dropped
};

} // namespace pw
