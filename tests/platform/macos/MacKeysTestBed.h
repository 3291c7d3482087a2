#pragma once

#include "common/TestSupport.h"

#include "platform/macos/SystemDefinedKeys.h"
#include "platform/macos/TapMediaKeys.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimWorkspace.h"
#include "support/RunLoop.h"
#include "support/SerialQueue.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace pw::test {

inline constexpr platform::DisplayID kBuiltin = 1;
inline constexpr platform::DisplayID kExternal = 2;

// A laptop panel with one external monitor to its right (a Mac: the default flavour).
inline sim::Scenario laptopWithMonitor() {
    sim::Scenario scenario;
    sim::DisplaySpec panel;
    panel.id = kBuiltin;
    panel.builtin = true;
    sim::DisplaySpec monitor;
    monitor.id = kExternal;
    scenario.displays = {panel, monitor};
    return scenario;
}

inline const platform::KeySet kDisplayKeys = {MediaKey::brightnessUp, MediaKey::brightnessDown,
                                              MediaKey::volumeUp, MediaKey::volumeDown,
                                              MediaKey::mute};

// The simulated Mac's key source, and what it handed over (on which thread).
class MacKeysBed : public ::testing::Test {
protected:
    struct Heard {
        platform::MediaKeyEvent event;
        bool onTapThread;
    };
    ~MacKeysBed() override {
        if (keys) keys->stop();
        main().runPending();
    }

    std::optional<platform::KeysError> startKeys(platform::KeyWish wish) {
        keys->want(wish);
        const auto error = keys->start([this](const platform::MediaKeyEvent& event) {
            std::lock_guard lock(mutex_);
            heard_.push_back(
                {event, SerialQueue::currentLabel() == macos::TapMediaKeys::kRunLoopQueueLabel});
        });
        main().runPending(); // our own announcement comes back
        return error;
    }
    std::vector<Heard> heard() {
        std::lock_guard lock(mutex_);
        return heard_;
    }

    // One event through the simulated keyboard; nothing runs the main queue meanwhile.
    std::shared_ptr<sim::InjectedEvent> send(const macos::InputEvent& event) {
        auto ticket = taps().inject(event);
        EXPECT_TRUE(ticket->wait());
        return ticket;
    }
    bool swallowedByUs(const std::shared_ptr<sim::InjectedEvent>& ticket) {
        return ticket->outcome() == sim::InjectedEvent::Outcome::swallowed &&
               ticket->swallowedBy() == ourTap();
    }
    static bool reachedSystem(const std::shared_ptr<sim::InjectedEvent>& ticket) {
        return ticket->outcome() == sim::InjectedEvent::Outcome::reachedSystem;
    }
    // Waits until the tap's thread has done what was scheduled on it so far.
    void flushTapThread() {
        auto loop = keys->runLoop();
        ASSERT_TRUE(loop);
        std::promise<void> done;
        loop->perform([&done] { done.set_value(); });
        loop->wakeUp();
        done.get_future().wait();
    }
    sim::TapId ourTap() {
        const auto live = taps().liveTaps();
        return live.empty() ? 0 : live.front();
    }

    sim::ManualMainQueue& main() { return *machine.manualMainQueue(); }
    sim::SimEventTaps& taps() { return machine.eventTaps(); }

    sim::SimMachine machine{laptopWithMonitor()};
    std::shared_ptr<macos::TapMediaKeys> keys =
        std::dynamic_pointer_cast<macos::TapMediaKeys>(machine.platform().mediaKeys);

private:
    std::mutex mutex_;
    std::vector<Heard> heard_;
};

} // namespace pw::test
