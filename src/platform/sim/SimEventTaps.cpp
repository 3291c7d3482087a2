#include "platform/sim/SimEventTaps.h"

#include "platform/sim/ManualMainQueue.h"
#include "support/RunLoop.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace pw::sim {

using macos::InputEvent;

// ---------------------------------------------------------------------------------------
// InjectedEvent

bool InjectedEvent::ready() const {
    std::lock_guard lock(mutex_);
    return outcome_ != Outcome::pending;
}

InjectedEvent::Outcome InjectedEvent::outcome() const {
    std::lock_guard lock(mutex_);
    return outcome_;
}

std::optional<TapId> InjectedEvent::swallowedBy() const {
    std::lock_guard lock(mutex_);
    return swallowedBy_;
}

std::optional<InputEvent> InjectedEvent::systemEvent() const {
    std::lock_guard lock(mutex_);
    return systemEvent_;
}

void InjectedEvent::resolve(Outcome outcome, std::optional<TapId> tap,
                            std::optional<InputEvent> systemEvent) {
    {
        std::lock_guard lock(mutex_);
        if (outcome_ != Outcome::pending) return;
        outcome_ = outcome;
        swallowedBy_ = tap;
        systemEvent_ = std::move(systemEvent);
        // Wake a test blocked in waitAndRun; the queue only takes its own lock in post.
        if (waker_) waker_->post([] {});
    }
    resolved_.notify_all();
}

bool InjectedEvent::runMainUntilReady(ManualMainQueue& mainQueue,
                                      std::chrono::milliseconds timeout) {
    bool pending = false;
    {
        std::lock_guard lock(mutex_);
        pending = outcome_ == Outcome::pending;
        if (pending) waker_ = &mainQueue;
    }
    // Decided already: what the tap posted on its way still runs here.
    if (!pending) {
        mainQueue.runPending();
        return true;
    }
    bool ok = true;
    while (!ready()) {
        if (mainQueue.waitAndRun(timeout) == 0 && !ready()) {
            ok = false;
            break;
        }
    }
    {
        std::lock_guard lock(mutex_);
        waker_ = nullptr;
    }
    mainQueue.runPending(); // the wake-up task, if it came after the last check
    return ok;
}

bool InjectedEvent::wait(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return resolved_.wait_for(lock, timeout, [this] { return outcome_ != Outcome::pending; });
}

// ---------------------------------------------------------------------------------------
// The machine

struct SimEventTaps::TapRecord {
    TapInfo info;
    macos::TapCallback callback;
    std::weak_ptr<RunLoop> runLoop; // the run loop's thread owns it, not the keyboard
    bool sourceInvalidated = false;
    std::deque<RunLoop::Block> pending; // events waiting for the source to be attached
    std::vector<EnableCall> enableCalls;
};

struct SimEventTaps::State {
    mutable std::mutex mutex;
    std::vector<std::shared_ptr<TapRecord>> taps; // every tap made, newest first
    int refuseTaps = 0;
    int failSources = 0;
    TapId nextId = 1;
    std::vector<std::shared_ptr<InjectedEvent>> injected;

    std::shared_ptr<TapRecord> find(TapId id) const {
        for (const auto& tap : taps)
            if (tap->info.id == id) return tap;
        return nullptr;
    }
};

namespace {

using State = SimEventTaps::State;
using TapRecord = SimEventTaps::TapRecord;
using Chain = std::vector<std::weak_ptr<TapRecord>>;

void deliver(const std::shared_ptr<State>& state, const std::shared_ptr<InjectedEvent>& ticket,
             const std::shared_ptr<const Chain>& chain, std::size_t index, const InputEvent& event);

// One event on its way to one tap's callback. If the run loop drops it unrun (stopped,
// or the tap went away first), it moves on to the next tap as if this one had passed it.
struct Step {
    std::shared_ptr<State> state;
    std::shared_ptr<InjectedEvent> ticket;
    std::shared_ptr<const Chain> chain;
    std::size_t index = 0;
    InputEvent event;
    bool ran = false;

    Step(std::shared_ptr<State> s, std::shared_ptr<InjectedEvent> t, std::shared_ptr<const Chain> c,
         std::size_t i, InputEvent e)
        : state(std::move(s)), ticket(std::move(t)), chain(std::move(c)), index(i), event(e) {}
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() {
        if (!ran) deliver(state, ticket, chain, index + 1, event);
    }

    void run() {
        ran = true;
        auto tap = (*chain)[index].lock();
        macos::TapCallback callback;
        if (tap) {
            std::lock_guard lock(state->mutex);
            if (!tap->info.invalidated && tap->info.enabled) callback = tap->callback;
        }
        if (!callback) {
            deliver(state, ticket, chain, index + 1, event);
            return;
        }
        if (auto passed = callback(event.type, event))
            deliver(state, ticket, chain, index + 1, *passed);
        else
            ticket->resolve(InjectedEvent::Outcome::swallowed, tap->info.id, std::nullopt);
    }
};

bool wantsType(std::uint64_t mask, std::int32_t type) {
    return type >= 0 && type < 64 && (mask & (std::uint64_t{1} << type)) != 0;
}

void deliver(const std::shared_ptr<State>& state, const std::shared_ptr<InjectedEvent>& ticket,
             const std::shared_ptr<const Chain>& chain, std::size_t index,
             const InputEvent& event) {
    for (std::size_t i = index; i < chain->size(); ++i) {
        auto tap = (*chain)[i].lock();
        if (!tap) continue;
        std::shared_ptr<RunLoop> runLoop;
        {
            std::lock_guard lock(state->mutex);
            const auto& info = tap->info;
            if (info.invalidated || !info.enabled || !wantsType(info.eventMask, event.type))
                continue;
            if (!info.hasSource || tap->sourceInvalidated) continue;
            runLoop = tap->runLoop.lock();
            if (!runLoop && info.attached) continue; // its thread is gone
            if (!runLoop) {
                auto step = std::make_shared<Step>(state, ticket, chain, i, event);
                tap->pending.emplace_back([step] { step->run(); });
                return;
            }
        }
        // Outside the lock: a run loop that drops the block runs the step's hand-on.
        auto step = std::make_shared<Step>(state, ticket, chain, i, event);
        runLoop->perform([step] { step->run(); });
        return;
    }
    ticket->resolve(InjectedEvent::Outcome::reachedSystem, std::nullopt, event);
}

// A disable notice on its way to one tap's callback.
struct NoticeStep {
    std::shared_ptr<State> state;
    std::shared_ptr<InjectedEvent> ticket;
    std::weak_ptr<TapRecord> tap;
    bool ran = false;

    NoticeStep(std::shared_ptr<State> s, std::shared_ptr<InjectedEvent> t,
               std::weak_ptr<TapRecord> r)
        : state(std::move(s)), ticket(std::move(t)), tap(std::move(r)) {}
    NoticeStep(const NoticeStep&) = delete;
    NoticeStep& operator=(const NoticeStep&) = delete;
    ~NoticeStep() {
        if (!ran)
            ticket->resolve(InjectedEvent::Outcome::noticeDropped, std::nullopt, std::nullopt);
    }

    void run() {
        ran = true;
        macos::TapCallback callback;
        if (auto record = tap.lock()) {
            std::lock_guard lock(state->mutex);
            if (!record->info.invalidated) callback = record->callback;
        }
        if (!callback) {
            ticket->resolve(InjectedEvent::Outcome::noticeDropped, std::nullopt, std::nullopt);
            return;
        }
        const auto& notice = ticket->event();
        callback(notice.type, notice); // what a callback returns for a notice is ignored
        ticket->resolve(InjectedEvent::Outcome::noticeDelivered, std::nullopt, std::nullopt);
    }
};

class SimTapSource final : public macos::TapRunLoopSource {
public:
    SimTapSource(std::shared_ptr<State> state, std::shared_ptr<TapRecord> tap)
        : state_(std::move(state)), tap_(std::move(tap)) {}

    void addToRunLoop(const std::shared_ptr<RunLoop>& runLoop) override {
        if (!runLoop) return;
        // Hand over what waited for us, in order, before new events may go straight to
        // the run loop: only an empty backlog lets the source count as attached.
        for (;;) {
            std::deque<RunLoop::Block> backlog;
            {
                std::lock_guard lock(state_->mutex);
                if (tap_->sourceInvalidated || tap_->info.invalidated) return;
                if (tap_->pending.empty()) {
                    tap_->runLoop = runLoop;
                    tap_->info.attached = true;
                    return;
                }
                backlog.swap(tap_->pending);
            }
            for (auto& block : backlog)
                runLoop->perform(std::move(block));
        }
    }

    void invalidate() override {
        std::deque<RunLoop::Block> dropped;
        {
            std::lock_guard lock(state_->mutex);
            tap_->sourceInvalidated = true;
            tap_->runLoop.reset();
            tap_->info.attached = false;
            dropped.swap(tap_->pending);
        }
        // `dropped` hands its events on as it dies, unlocked.
    }

private:
    std::shared_ptr<State> state_;
    std::shared_ptr<TapRecord> tap_;
};

class SimTap final : public macos::EventTap {
public:
    SimTap(std::shared_ptr<State> state, std::shared_ptr<TapRecord> tap)
        : state_(std::move(state)), tap_(std::move(tap)) {}
    // The last reference to a port going away removes the tap, as releasing one does.
    ~SimTap() override { invalidate(); }

    void enable(bool enabled) override {
        std::lock_guard lock(state_->mutex);
        tap_->info.enabled = enabled;
        const auto runLoop = tap_->runLoop.lock();
        tap_->enableCalls.push_back({enabled, runLoop && runLoop->isCurrent()});
    }

    void invalidate() override {
        std::deque<RunLoop::Block> dropped;
        macos::TapCallback callback;
        {
            std::lock_guard lock(state_->mutex);
            if (tap_->info.invalidated) return;
            tap_->info.invalidated = true;
            dropped.swap(tap_->pending);
            callback.swap(tap_->callback);
        }
    }

    std::shared_ptr<macos::TapRunLoopSource> createRunLoopSource() override {
        {
            std::lock_guard lock(state_->mutex);
            if (tap_->info.invalidated) return nullptr;
            if (state_->failSources > 0) {
                --state_->failSources;
                return nullptr;
            }
            tap_->info.hasSource = true;
            tap_->sourceInvalidated = false;
        }
        return std::make_shared<SimTapSource>(state_, tap_);
    }

private:
    std::shared_ptr<State> state_;
    std::shared_ptr<TapRecord> tap_;
};

} // namespace

SimEventTaps::SimEventTaps() : state_(std::make_shared<State>()) {}
SimEventTaps::~SimEventTaps() = default;

std::shared_ptr<macos::EventTap> SimEventTaps::createTap(macos::TapLocation location,
                                                            macos::TapPlacement placement,
                                                            macos::TapOptions options,
                                                            std::uint64_t eventMask,
                                                            macos::TapCallback callback) {
    std::lock_guard lock(state_->mutex);
    if (state_->refuseTaps > 0) {
        --state_->refuseTaps;
        return nullptr;
    }
    auto record = std::make_shared<TapRecord>();
    record->info.id = state_->nextId++;
    record->info.location = location;
    record->info.placement = placement;
    record->info.options = options;
    record->info.eventMask = eventMask;
    record->callback = std::move(callback);
    // Every tap the program can ask for is a head insert: the newest sees events first.
    state_->taps.insert(state_->taps.begin(), record);
    return std::make_shared<SimTap>(state_, std::move(record));
}

std::shared_ptr<InjectedEvent> SimEventTaps::inject(InputEvent event) {
    auto ticket = std::make_shared<InjectedEvent>(event);
    auto chain = std::make_shared<Chain>();
    {
        std::lock_guard lock(state_->mutex);
        state_->injected.push_back(ticket);
        for (const auto& tap : state_->taps)
            if (!tap->info.invalidated) chain->push_back(tap);
    }
    deliver(state_, ticket, chain, 0, event);
    return ticket;
}

InputEvent SimEventTaps::systemDefined(std::int32_t data1, std::int16_t subtype) {
    InputEvent event;
    event.type = macos::kEventTypeSystemDefined;
    event.subtype = subtype;
    event.data1 = data1;
    return event;
}

InputEvent SimEventTaps::keyDown(std::int64_t keyCode) {
    InputEvent event;
    event.type = macos::kEventTypeKeyDown;
    event.keyboardKeyCode = keyCode;
    return event;
}

std::vector<std::shared_ptr<InjectedEvent>> SimEventTaps::injected() const {
    std::lock_guard lock(state_->mutex);
    return state_->injected;
}

std::shared_ptr<InjectedEvent> SimEventTaps::sendTimeoutNotice(TapId tap) {
    return sendNotice(tap, macos::kEventTypeTapDisabledByTimeout);
}

std::shared_ptr<InjectedEvent> SimEventTaps::sendUserInputNotice(TapId tap) {
    return sendNotice(tap, macos::kEventTypeTapDisabledByUserInput);
}

std::shared_ptr<InjectedEvent> SimEventTaps::sendNotice(TapId id, std::int32_t type) {
    InputEvent notice;
    notice.type = type;
    auto ticket = std::make_shared<InjectedEvent>(notice);
    std::shared_ptr<RunLoop> runLoop;
    std::shared_ptr<NoticeStep> step;
    {
        std::lock_guard lock(state_->mutex);
        auto tap = state_->find(id);
        if (tap && !tap->info.invalidated) {
            // The system disables the tap first; the notice tells its callback so.
            tap->info.enabled = false;
            if (tap->info.hasSource && !tap->sourceInvalidated) {
                runLoop = tap->runLoop.lock();
                if (runLoop || !tap->info.attached) {
                    step = std::make_shared<NoticeStep>(state_, ticket, tap);
                    if (!runLoop) {
                        tap->pending.emplace_back([step] { step->run(); });
                        return ticket;
                    }
                }
            }
        }
    }
    if (!step) {
        ticket->resolve(InjectedEvent::Outcome::noticeDropped, std::nullopt, std::nullopt);
        return ticket;
    }
    runLoop->perform([step] { step->run(); });
    return ticket;
}

void SimEventTaps::refuseTaps(int count) {
    std::lock_guard lock(state_->mutex);
    state_->refuseTaps = count;
}

void SimEventTaps::failRunLoopSources(int count) {
    std::lock_guard lock(state_->mutex);
    state_->failSources = count;
}

std::size_t SimEventTaps::tapsCreated() const {
    std::lock_guard lock(state_->mutex);
    return state_->taps.size();
}

std::size_t SimEventTaps::liveTapCount() const {
    return liveTaps().size();
}

std::vector<TapId> SimEventTaps::liveTaps() const {
    std::lock_guard lock(state_->mutex);
    std::vector<TapId> ids;
    for (const auto& tap : state_->taps)
        if (!tap->info.invalidated) ids.push_back(tap->info.id);
    return ids;
}

std::optional<SimEventTaps::TapInfo> SimEventTaps::tap(TapId id) const {
    std::lock_guard lock(state_->mutex);
    if (auto record = state_->find(id)) return record->info;
    return std::nullopt;
}

bool SimEventTaps::isEnabled(TapId id) const {
    const auto info = tap(id);
    return info && info->enabled && !info->invalidated;
}

bool SimEventTaps::isInvalidated(TapId id) const {
    const auto info = tap(id);
    return info && info->invalidated;
}

std::vector<SimEventTaps::EnableCall> SimEventTaps::enableCalls(TapId id) const {
    std::lock_guard lock(state_->mutex);
    if (auto record = state_->find(id)) return record->enableCalls;
    return {};
}

} // namespace pw::sim
