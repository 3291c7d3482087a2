#pragma once

#include "DesktopTestSupport.h"
#include "platform/EventTap.h"
#include "platform/sim/MemorySystemLog.h"
#include "support/RunLoop.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace pw::test {

using namespace std::chrono_literals;

// The data1 word of a media key transition as the key hook reads it.
inline std::int32_t mediaData1(std::int32_t mediaCode, bool down, bool repeat = false) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(mediaCode) << 16 |
                                     (down ? 0x0A00u : 0x0B00u) | (repeat ? 1u : 0u));
}

// What a tap's callback saw, on the run loop thread of the tap.
class TapRecorder {
public:
    std::function<bool(const platform::InputEvent&)> passOn = [](const auto&) { return false; };

    platform::TapCallback callback() {
        return [this](std::int32_t type,
                      const platform::InputEvent& event) -> std::optional<platform::InputEvent> {
            const bool pass = passOn(event);
            {
                std::lock_guard lock(mutex_);
                seen_.push_back({type, event});
            }
            changed_.notify_all();
            if (pass) return event;
            return std::nullopt;
        };
    }
    // Waits (at most 10 s) until `count` events were seen and returns them.
    std::vector<std::pair<std::int32_t, platform::InputEvent>> waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 10s, [&] { return seen_.size() >= count; });
        return seen_;
    }
    // The data1 words seen so far.
    std::vector<std::int32_t> data1s(std::size_t atLeast = 0) {
        std::vector<std::int32_t> words;
        for (const auto& [type, event] : waitFor(atLeast))
            words.push_back(event.data1);
        return words;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::pair<std::int32_t, platform::InputEvent>> seen_;
};

// A thread running a run loop, as the key hook's queue does.
class LoopThread {
public:
    LoopThread() {
        std::promise<std::shared_ptr<RunLoop>> made;
        thread_ = std::thread([&made] {
            auto loop = RunLoop::current();
            made.set_value(loop);
            loop->run();
        });
        loop_ = made.get_future().get();
    }
    ~LoopThread() {
        loop_->stop();
        thread_.join();
    }
    const std::shared_ptr<RunLoop>& loop() const { return loop_; }
    // Returns once everything handed to the run loop before has been performed.
    void drain() {
        std::promise<void> done;
        loop_->perform([&done] { done.set_value(); });
        loop_->wakeUp();
        done.get_future().wait_for(10s);
    }

private:
    std::shared_ptr<RunLoop> loop_;
    std::thread thread_;
};

// A system log the test can wait on.
class WaitableLog final : public platform::SystemLogSink {
public:
    void write(std::string_view subsystem, std::string_view category, platform::LogLevel level,
               std::string_view message) override {
        memory.write(subsystem, category, level, message);
        { std::lock_guard lock(mutex_); } // a waiter is either waiting or sees the line
        changed_.notify_all();
    }
    // The category's lines once one equals `line` (at most 10 s).
    std::vector<std::string> waitForLine(std::string_view category, const std::string& line) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 10s, [&] {
            const auto lines = memory.messages(category);
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
        return memory.messages(category);
    }
    std::vector<std::string> messages(std::string_view category) const {
        return memory.messages(category);
    }

    sim::MemorySystemLog memory;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
};

// Makes a tap on `taps` for the key hook's mask and attaches its source to `loop`.
template <typename Taps>
std::shared_ptr<platform::EventTap> startTap(Taps& taps, TapRecorder& recorder,
                                             const std::shared_ptr<RunLoop>& loop) {
    auto made = taps.createTap(platform::TapLocation::session, platform::TapPlacement::headInsert,
                               platform::TapOptions::defaultFilter,
                               platform::kKeyDownAndSystemDefinedMask, recorder.callback());
    if (made) made->createRunLoopSource()->addToRunLoop(loop);
    return made;
}

// A key tap's surroundings on a private bus: the bus, a log to wait on, the run loop the
// tap's source joins and what its callback saw.
class KeyTapOnBus : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateBus::start();
        if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    }

    std::optional<PrivateBus> bus;
    std::shared_ptr<WaitableLog> log = std::make_shared<WaitableLog>();
    TapRecorder recorder;
    LoopThread loop; // stopped first: nothing runs on it once the recorder is gone
};

} // namespace pw::test
