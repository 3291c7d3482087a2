#include "platform/macos/TapMediaKeys.h"

#include "platform/macos/SystemDefinedKeys.h"

#include <algorithm>
#include <utility>

namespace pw::macos {

std::shared_ptr<TapMediaKeys> TapMediaKeys::create(Machine machine) {
    return std::shared_ptr<TapMediaKeys>(new TapMediaKeys(std::move(machine)));
}

TapMediaKeys::TapMediaKeys(Machine machine)
    : machine_(std::move(machine)),
      watcher_(std::make_shared<MediaApplicationWatcher>(machine_.workspace, machine_.distributed,
                                                         machine_.ownIdentifier)) {}

TapMediaKeys::~TapMediaKeys() {
    // The watcher outlives us (its distributed observers keep it): stop it following the
    // workspace on our behalf.
    watcher_->removeWorkspaceObservers();
    teardown();
}

void TapMediaKeys::want(const platform::KeyWish& wish) {
    std::lock_guard lock(shared_->mutex);
    shared_->wish = wish;
}

platform::KeySet TapMediaKeys::keysToWatch() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->wish.keys;
}

bool TapMediaKeys::intercepting() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->intercepting;
}

std::shared_ptr<RunLoop> TapMediaKeys::runLoop() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->runLoop;
}

std::optional<platform::KeysError> TapMediaKeys::start(OnKey onKey) {
    teardown();
    {
        std::lock_guard lock(shared_->mutex);
        shared_->onKey = std::move(onKey);
        shared_->intercepting = true;
    }
    started_ = true;
    watcher_->setDelegate(weak_from_this());
    watcher_->start();
    const auto error = openTap();
    // Without a tap the program runs on without media keys; the workspace no longer
    // matters to us.
    if (error) watcher_->removeWorkspaceObservers();
    return error;
}

void TapMediaKeys::stop() {
    watcher_->removeWorkspaceObservers();
    watcher_->setDelegate({});
    teardown();
    started_ = false;
    std::lock_guard lock(shared_->mutex);
    shared_->onKey = nullptr;
}

void TapMediaKeys::activate() {
    if (!machine_.workspace) return;
    const auto self = machine_.workspace->currentApplication();
    auto& apps = watcher_->mediaApps();
    apps.erase(std::remove(apps.begin(), apps.end(), self), apps.end());
    apps.insert(apps.begin(), self);
    watcher_->updateInterception();
}

void TapMediaKeys::setInterceptMediaKeys(bool intercept) {
    std::shared_ptr<RunLoop> loop;
    {
        std::lock_guard lock(shared_->mutex);
        if (shared_->intercepting == intercept) return;
        shared_->intercepting = intercept;
        if (!shared_->tap) return;
        loop = shared_->runLoop;
    }
    if (!loop) return;
    // The tap is enabled and disabled on its own thread.
    loop->perform([shared = shared_, intercept] {
        std::shared_ptr<EventTap> tap;
        {
            std::lock_guard lock(shared->mutex);
            tap = shared->tap;
        }
        if (tap) tap->enable(intercept);
    });
    loop->wakeUp();
}

void TapMediaKeys::restartTap() {
    if (!started_) return;
    teardown();
    // A restart that fails leaves the program without media keys, like a failed start.
    if (openTap()) watcher_->removeWorkspaceObservers();
}

TapCallback TapMediaKeys::makeCallback(std::shared_ptr<Shared> shared, std::uint64_t generation,
                                       std::function<bool()> pointer, bool alternate) {
    return [shared = std::move(shared), generation, pointer = std::move(pointer),
            alternate](std::int32_t type, const InputEvent& event) -> std::optional<InputEvent> {
        platform::KeyWish wish;
        bool intercepting = false;
        OnKey onKey;
        std::shared_ptr<EventTap> tap;
        {
            std::lock_guard lock(shared->mutex);
            if (shared->generation != generation) return event; // a tap torn down
            wish = shared->wish;
            intercepting = shared->intercepting;
            onKey = shared->onKey;
            tap = shared->tap;
        }
        if (type == kEventTypeTapDisabledByTimeout) {
            // The system gave up on the tap: take it back at once.
            if (tap) tap->enable(true);
            return event;
        }
        // Disabled by user input: the user meant it, so the tap stays off.
        if (type == kEventTypeTapDisabledByUserInput) return event;
        const auto decision = decide(type, event, wish, intercepting, pointer, alternate);
        if (!decision.swallow) return event;
        if (decision.deliver && onKey) onKey(*decision.deliver);
        return std::nullopt;
    };
}

std::optional<platform::KeysError> TapMediaKeys::openTap() {
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(shared_->mutex);
        generation = shared_->generation;
    }
    auto callback =
        makeCallback(shared_, generation, machine_.pointerOnBuiltInPanel, machine_.alternateBrightnessKeys);
    std::shared_ptr<EventTap> tap;
    if (machine_.taps)
        tap = machine_.taps->createTap(TapLocation::session, TapPlacement::headInsert,
                                       TapOptions::defaultFilter, kKeyDownAndSystemDefinedMask,
                                       std::move(callback));
    {
        std::lock_guard lock(shared_->mutex);
        shared_->tap = tap;
    }
    if (!tap) return platform::KeysError::refused;
    source_ = tap->createRunLoopSource();
    if (!source_) return platform::KeysError::noDelivery;

    runLoopQueue_ = std::make_unique<SerialQueue>(kRunLoopQueueLabel);
    runLoopQueue_->async([shared = shared_, source = source_, generation] {
        auto loop = RunLoop::current();
        {
            std::lock_guard lock(shared->mutex);
            // Torn down before this thread got going: stay out of the way.
            if (shared->generation != generation) return;
            shared->runLoop = loop;
        }
        source->addToRunLoop(loop);
        // Runs until a teardown stops it; a stop that came first makes it return at once.
        loop->run();
    });
    return std::nullopt;
}

void TapMediaKeys::teardown() {
    std::shared_ptr<RunLoop> loop;
    std::shared_ptr<EventTap> tap;
    {
        std::lock_guard lock(shared_->mutex);
        ++shared_->generation;
        loop = std::move(shared_->runLoop);
        tap = std::move(shared_->tap);
    }
    if (source_) source_->invalidate();
    source_.reset();
    if (loop) loop->stop();
    if (tap) tap->invalidate();
    // Joins the tap's thread: it never waits for this one, so the join is short.
    runLoopQueue_.reset();
}

} // namespace pw::macos
