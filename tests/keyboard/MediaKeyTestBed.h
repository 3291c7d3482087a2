#pragma once

#include "keyboard/MediaKeyHook.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimEventTaps.h"
#include "platform/sim/SimHostInfo.h"
#include "platform/sim/SimMachine.h"
#include "platform/sim/SimWorkspace.h"
#include "support/RunLoop.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

namespace pw::test {

inline constexpr platform::DisplayID kBuiltin = 1;
inline constexpr platform::DisplayID kExternal = 2;

// A laptop panel with one external monitor to its right.
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

// Everything the hook handed to its delegate, and on which thread.
class RecordingKeys final : public MediaKeyHookDelegate {
public:
    struct Call {
        MediaKey key;
        KeyEvent event;
        std::optional<platform::ModifierFlags> modifiers;
        bool onMainThread;
    };
    explicit RecordingKeys(std::shared_ptr<platform::MainQueue> main) : main_(std::move(main)) {}
    void handle(MediaKey key, const KeyEvent& event,
                std::optional<platform::ModifierFlags> modifiers) override {
        calls.push_back({key, event, modifiers, main_->isMainThread()});
    }
    std::vector<Call> calls;

private:
    std::shared_ptr<platform::MainQueue> main_;
};

// Standard output, captured for the life of the object.
class CapturedStdout {
public:
    CapturedStdout() : previous_(std::cout.rdbuf(buffer_.rdbuf())) {}
    ~CapturedStdout() { std::cout.rdbuf(previous_); }
    std::string text() const { return buffer_.str(); }

private:
    std::ostringstream buffer_;
    std::streambuf* previous_;
};

// Threads of this process whose name starts with `prefix` right now (Linux): by default
// those that run a tap's run loop. Only named ones are counted: sanitizer runtimes start
// helper threads of their own whenever they like.
inline std::size_t threadCount(const std::string& prefix = "MediaKeyHook") {
    std::size_t n = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(entry.path() / "comm");
        std::string name;
        std::getline(comm, name);
        if (name.rfind(prefix, 0) == 0) ++n;
    }
    return n;
}

// A tap of some application whose callback runs on a run loop of a thread of its own and
// swallows the key codes it is told to.
class AppTap {
public:
    AppTap(sim::SimEventTaps& taps, std::int32_t swallowCode, std::uint64_t mask = 0x4400,
           bool attach = true)
        : swallow_(swallowCode) {
        tap = taps.createTap(
            platform::TapLocation::session, platform::TapPlacement::headInsert,
            platform::TapOptions::defaultFilter, mask,
            [this](std::int32_t type,
                   const platform::InputEvent& event) -> std::optional<platform::InputEvent> {
                seen.push_back(type == platform::kEventTypeKeyDown
                                   ? static_cast<std::int32_t>(event.keyboardKeyCode)
                                   : KeyEvent::fromData1(event.data1).keycode);
                if (type >= 0 && seen.back() == swallow_) return std::nullopt;
                return event;
            });
        source = tap->createRunLoopSource();
        thread_ = std::thread([this] {
            auto own = RunLoop::current();
            loopMade_.set_value(own);
            own->run();
        });
        loop = loopMade_.get_future().get();
        if (attach) attachSource();
    }
    ~AppTap() {
        tap->invalidate();
        loop->stop();
        thread_.join();
    }
    void attachSource() {
        std::promise<void> done;
        loop->perform([&] {
            source->addToRunLoop(loop);
            done.set_value();
        });
        done.get_future().get();
    }
    std::shared_ptr<platform::EventTap> tap;
    std::shared_ptr<platform::TapRunLoopSource> source;
    std::shared_ptr<RunLoop> loop;
    std::vector<std::int32_t> seen; // on the tap's thread; read after the event's outcome

private:
    std::int32_t swallow_;
    std::promise<std::shared_ptr<RunLoop>> loopMade_;
    std::thread thread_;
};

class MediaKeyHookBed : public ::testing::Test {
protected:
    ~MediaKeyHookBed() override {
        hook.reset();
        main().runPending();
    }

    void startHook(KeyPressMode mode, std::vector<MediaKey> keys, bool observeBuiltIn = true) {
        hook =
            MediaKeyHook::create(machine.platform(), keys_, mode, std::move(keys), observeBuiltIn);
        hook->start();
        main().runPending(); // our own announcement comes back
    }

    // One event through the simulated keyboard, run to its outcome.
    std::shared_ptr<sim::InjectedEvent> send(const platform::InputEvent& event) {
        auto ticket = taps().inject(event);
        EXPECT_TRUE(ticket->runMainUntilReady(main()));
        return ticket;
    }
    bool swallowedByUs(const std::shared_ptr<sim::InjectedEvent>& ticket) {
        return ticket->outcome() == sim::InjectedEvent::Outcome::swallowed &&
               ticket->swallowedBy() == ourTap();
    }
    static bool reachedSystem(const std::shared_ptr<sim::InjectedEvent>& ticket) {
        return ticket->outcome() == sim::InjectedEvent::Outcome::reachedSystem;
    }

    // Waits until the tap's thread has done what was scheduled on it so far (an enable).
    void flushTapThread() {
        auto loop = hook->internals().runLoop();
        ASSERT_TRUE(loop);
        std::promise<void> done;
        loop->perform([&done] { done.set_value(); });
        done.get_future().wait();
    }

    sim::TapId ourTap() {
        const auto live = taps().liveTaps();
        return live.empty() ? 0 : live.front();
    }

    // Spins (no sleeping) until a task of another thread waits in the main queue.
    bool waitForMainTask() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (main().pendingCount() == 0) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::yield();
        }
        return true;
    }

    sim::ManualMainQueue& main() { return *machine.manualMainQueue(); }
    sim::SimEventTaps& taps() { return machine.eventTaps(); }

    sim::SimMachine machine{laptopWithMonitor()};
    std::shared_ptr<RecordingKeys> keys_ =
        std::make_shared<RecordingKeys>(machine.platform().mainQueue);
    std::shared_ptr<MediaKeyHook> hook;
};

// The keyboard manager's keys: no playback key among them.
inline const std::vector<MediaKey> kDisplayKeys = {MediaKey::brightnessUp, MediaKey::brightnessDown,
                                                   MediaKey::volumeUp, MediaKey::volumeDown,
                                                   MediaKey::mute};

} // namespace pw::test
