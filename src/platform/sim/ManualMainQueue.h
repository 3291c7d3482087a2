#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/MainQueue.h"
#include "platform/sim/VirtualClock.h"

namespace pw::sim {

// The main queue of the simulated machine, driven by the test on virtual time.
// Tasks posted from any thread wait until the test runs them; delayed tasks become
// due when the virtual clock reaches their time. The thread that constructs the
// queue counts as the main thread.
class ManualMainQueue final : public platform::MainQueue {
public:
    explicit ManualMainQueue(VirtualClock& clock);

    void post(Task task) override;
    void postAfter(std::chrono::milliseconds delay, Task task) override;
    bool isMainThread() const override;

    // Runs every task that is due now, including tasks they post that are due now.
    // Returns how many ran.
    std::size_t runPending();

    // Moves virtual time forward by `duration`, running each delayed task when its
    // time comes (the clock stands at the task's due time while it runs).
    std::size_t advance(std::chrono::milliseconds duration);

    // Runs due tasks and, when none is due, jumps the clock to the next delayed one,
    // until the queue is empty. Returns how many ran.
    std::size_t runUntilIdle();

    // Blocks (in real time, up to `timeout`) until at least one task is due, for
    // work posted from other threads; then runs everything due. Returns how many ran.
    std::size_t waitAndRun(std::chrono::milliseconds timeout = std::chrono::seconds(20));

    std::size_t pendingCount() const;

private:
    using Key = std::pair<platform::Clock::TimePoint, std::uint64_t>;
    bool popDue(Task& task);

    VirtualClock& clock_;
    std::thread::id mainThread_;
    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::map<Key, Task> tasks_;
    std::uint64_t sequence_ = 0;
};

} // namespace pw::sim
