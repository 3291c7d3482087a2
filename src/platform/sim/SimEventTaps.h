#pragma once

#include "platform/macos/EventTap.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace pw::sim {

class ManualMainQueue;

using TapId = std::uint64_t; // 1 for the first tap the machine made, then 2, 3, ...

// What became of one event injected into the simulated keyboard (or of one disable
// notice sent to a tap). Filled in from whichever thread decided it.
class InjectedEvent {
public:
    enum class Outcome {
        pending,
        swallowed,       // a tap returned nothing: `swallowedBy` says which
        reachedSystem,   // every tap passed it on: `systemEvent` is what arrived
        noticeDelivered, // a disable notice reached its tap's callback
        noticeDropped,   // ... or could not be delivered (the tap had no running loop)
    };

    explicit InjectedEvent(macos::InputEvent event) : event_(event) {}

    const macos::InputEvent& event() const { return event_; }
    bool ready() const;
    Outcome outcome() const;
    std::optional<TapId> swallowedBy() const;
    std::optional<macos::InputEvent> systemEvent() const;

    // Runs the main queue until the outcome is known, and then what is pending there (the
    // key a tap posted on its way). False when nothing happened for `timeout` (real time)
    // while the outcome was still open.
    bool runMainUntilReady(ManualMainQueue& mainQueue,
                           std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // Waits without running any queue.
    bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

    // Machine side.
    void resolve(Outcome outcome, std::optional<TapId> tap,
                 std::optional<macos::InputEvent> systemEvent);

private:
    macos::InputEvent event_;
    mutable std::mutex mutex_;
    mutable std::condition_variable resolved_;
    Outcome outcome_ = Outcome::pending;
    std::optional<TapId> swallowedBy_;
    std::optional<macos::InputEvent> systemEvent_;
    ManualMainQueue* waker_ = nullptr; // posted to when resolved, so the runner wakes
};

// The simulated user's keyboard: events are injected at the head of the tap list and
// travel through every live, enabled tap in order (newest first) on the run loop its
// source is attached to; the machine records for each event whether a tap swallowed it
// or it reached the system. Taps can be refused, sources can fail, and the system's two
// disable notices can be sent.
//
// A tap only sees events of the types in its mask. A tap whose source is made but not yet
// attached holds its events until the source joins a run loop; a tap without a source, or
// whose source was invalidated, is skipped (nothing would ever answer for it). An event
// handed to a run loop that drops it (stopped) moves on to the next tap. Thread-safe.
class SimEventTaps final : public macos::EventTaps {
public:
    struct TapInfo {
        TapId id = 0;
        macos::TapLocation location = macos::TapLocation::session;
        macos::TapPlacement placement = macos::TapPlacement::headInsert;
        macos::TapOptions options = macos::TapOptions::defaultFilter;
        std::uint64_t eventMask = 0;
        bool enabled = true;
        bool invalidated = false;
        bool hasSource = false;
        bool attached = false; // its source is on a run loop
    };
    struct EnableCall {
        bool enabled = false;
        bool onTapThread = false; // made on the thread of the run loop the tap is on
    };

    SimEventTaps();
    ~SimEventTaps() override;
    std::shared_ptr<macos::EventTap> createTap(macos::TapLocation location,
                                                  macos::TapPlacement placement,
                                                  macos::TapOptions options,
                                                  std::uint64_t eventMask,
                                                  macos::TapCallback callback) override;

    // --- the user presses keys
    std::shared_ptr<InjectedEvent> inject(macos::InputEvent event);
    // A system-defined event (type 14) with this data1 word.
    static macos::InputEvent
    systemDefined(std::int32_t data1,
                  std::int16_t subtype = macos::kSystemDefinedAuxControlButtons);
    // A key-down event (type 10) of this keyboard key code.
    static macos::InputEvent keyDown(std::int64_t keyCode);
    // Every event injected so far, in order.
    std::vector<std::shared_ptr<InjectedEvent>> injected() const;

    // --- the system's notices: the tap is disabled, then its callback hears of it
    std::shared_ptr<InjectedEvent> sendTimeoutNotice(TapId tap);
    std::shared_ptr<InjectedEvent> sendUserInputNotice(TapId tap);

    // --- faults
    void refuseTaps(int count);         // the next `count` createTap calls fail
    void failRunLoopSources(int count); // the next `count` sources cannot be made

    // --- looking at the taps
    std::size_t tapsCreated() const;     // every tap handed out
    std::size_t liveTapCount() const;    // not invalidated
    std::vector<TapId> liveTaps() const; // head first
    std::optional<TapInfo> tap(TapId id) const;
    bool isEnabled(TapId id) const;
    bool isInvalidated(TapId id) const;
    std::vector<EnableCall> enableCalls(TapId id) const;

    struct State;
    struct TapRecord;

private:
    std::shared_ptr<InjectedEvent> sendNotice(TapId tap, std::int32_t type);
    std::shared_ptr<State> state_;
};

} // namespace pw::sim
