#pragma once

#include "DesktopTestSupport.h"
#include "platform/MediaKeys.h"
#include "platform/sim/MemorySystemLog.h"

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

inline const platform::KeySet kFiveKeys = {MediaKey::brightnessUp, MediaKey::brightnessDown,
                                           MediaKey::volumeUp, MediaKey::volumeDown,
                                           MediaKey::mute};

// A press (or release) as a source hands it over.
inline platform::MediaKeyEvent keyEvent(MediaKey key, bool pressed, bool repeat = false) {
    return {key, {pressed, repeat}, std::nullopt};
}

// What a source handed over, from whichever thread.
class KeyRecorder {
public:
    platform::MediaKeys::OnKey onKey() {
        return [this](const platform::MediaKeyEvent& event) {
            {
                std::lock_guard lock(mutex_);
                seen_.push_back(event);
            }
            changed_.notify_all();
        };
    }
    // Waits (at most 10 s) until `count` keys were handed over and returns them.
    std::vector<platform::MediaKeyEvent> waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 10s, [&] { return seen_.size() >= count; });
        return seen_;
    }
    // The same, without modifiers (the bus services never tell them).
    std::vector<platform::MediaKeyEvent> keysOnly(std::size_t count) {
        auto seen = waitFor(count);
        for (auto& event : seen)
            event.modifiers.reset();
        return seen;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<platform::MediaKeyEvent> seen_;
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

// Starts `source` on the five keys, every transition heard, into `recorder`.
inline bool startKeys(platform::MediaKeys& source, KeyRecorder& recorder,
                      platform::KeySet keys = kFiveKeys) {
    source.want({keys, platform::KeyPressMode::keyDownAndUp, true});
    return !source.start(recorder.onKey());
}

// A key source's surroundings on a private bus: the bus, a log to wait on, and what the
// source handed over.
class KeyTapOnBus : public ::testing::Test {
protected:
    void SetUp() override {
        bus = PrivateBus::start();
        if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    }

    std::optional<PrivateBus> bus;
    std::shared_ptr<WaitableLog> log = std::make_shared<WaitableLog>();
    KeyRecorder recorder;
};

} // namespace pw::test
