#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/Clock.h"
#include "platform/MainQueue.h"

namespace pw::platform {

// A main queue for programs without a GUI event loop (the command line, benchmarks):
// the thread that calls `run` runs the tasks, in due-time order, in real time.
class LoopMainQueue final : public MainQueue {
public:
    LoopMainQueue();

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    bool isMainThread() const override;

    // Runs tasks until `stop` is called (from a task or another thread).
    void run();
    // Runs what is due now and returns how many ran (never blocks).
    std::size_t runPending();
    void stop();

private:
    using Key = std::pair<std::chrono::steady_clock::time_point, std::uint64_t>;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::map<Key, Task> tasks_;
    std::uint64_t sequence_ = 0;
    bool stopping_ = false;
    std::thread::id mainThread_;
};

} // namespace pw::platform
