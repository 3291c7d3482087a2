#include "keyboard/MediaKeyHook.h"

#include "app/DiagnosticLog.h"
#include "app/SystemLog.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace pw {

namespace {

using platform::InputEvent;

bool contains(const std::vector<MediaKey>& keys, MediaKey key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

const std::vector<MediaKey>& allMediaKeys() {
    static const std::vector<MediaKey> keys = {
        MediaKey::playPause,   MediaKey::previous,     MediaKey::next,           MediaKey::rewind,
        MediaKey::fastForward, MediaKey::brightnessUp, MediaKey::brightnessDown, MediaKey::volumeUp,
        MediaKey::volumeDown,  MediaKey::mute,
    };
    return keys;
}

// The window system's mouse-in-rectangle test for unflipped coordinates: the left and
// top edges belong to the rectangle, the right and bottom edges to its neighbours.
bool mouseInRect(platform::Point p, const platform::Rect& r) {
    return p.x >= r.x && p.x < r.x + r.width && p.y > r.y && p.y <= r.y + r.height;
}

// The key-press mode filter shared by both decision paths: true when the transition is
// one the delegate wants to hear about.
bool modeDelivers(KeyPressMode mode, bool keyPressed) {
    switch (mode) {
    case KeyPressMode::keyDown:
        return keyPressed;
    case KeyPressMode::keyUp:
        return !keyPressed;
    case KeyPressMode::keyDownAndUp:
        return true;
    }
    return false;
}

} // namespace

// ---------------------------------------------------------------------------------------
// MediaKeyHookInternals

MediaKeyHookInternals::MediaKeyHookInternals(platform::Platform platform)
    : platform_(std::move(platform)) {}

MediaKeyHookInternals::~MediaKeyHookInternals() {
    // A hook dropped without stop still removes its tap. The run loop must be stopped
    // (and any callback waiting for the main thread released) before the queue member
    // below is destroyed, because that joins the run-loop thread.
    teardown();
}

void MediaKeyHookInternals::setDelegate(std::weak_ptr<MediaKeyHook> owner) {
    delegate_ = std::move(owner);
}

std::shared_ptr<RunLoop> MediaKeyHookInternals::runLoop() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->runLoop;
}

std::optional<EventTapError>
MediaKeyHookInternals::startWatchingMediaKeys(platform::TapCallback callback, bool restart) {
    if (!restart) {
        if (auto owner = delegate_.lock()) owner->setInterceptMediaKeys(true);
    }

    std::shared_ptr<platform::EventTap> tap;
    if (platform_.eventTaps) {
        tap = platform_.eventTaps->createTap(
            platform::TapLocation::session, platform::TapPlacement::headInsert,
            platform::TapOptions::defaultFilter, platform::kKeyDownAndSystemDefinedMask, callback);
    }
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(shared_->mutex);
        shared_->tap = tap;
        generation = shared_->generation;
    }
    keyEventPort_ = tap;
    if (!tap) return EventTapError::eventTapCreationFailure;

    auto source = tap->createRunLoopSource();
    runLoopSource_ = source;
    if (!source) return EventTapError::runLoopSourceCreationFailure;

    // Replacing a queue joins its thread: its run loop was stopped by the teardown that
    // came before this restart, so that join is short.
    runLoopQueue_ = std::make_shared<SerialQueue>(kRunLoopQueueLabel);
    std::weak_ptr<MediaKeyHookInternals> weak = weak_from_this();
    auto shared = shared_;
    runLoopQueue_->async([weak, shared, source, generation] {
        if (weak.expired()) return;
        auto runLoop = RunLoop::current();
        {
            std::lock_guard lock(shared->mutex);
            // Torn down before this thread got going: stay out of the way.
            if (shared->generation != generation) return;
            shared->runLoop = runLoop;
        }
        source->addToRunLoop(runLoop);
        // Runs until a teardown stops it; a stop that came first makes it return at once.
        runLoop->run();
    });

    callback_ = std::move(callback);
    return std::nullopt;
}

std::optional<EventTapError> MediaKeyHookInternals::restartTap() {
    teardown();
    return startWatchingMediaKeys(makeCallback(weak_from_this()), true);
}

void MediaKeyHookInternals::teardown() {
    std::shared_ptr<RunLoop> runLoop;
    {
        std::lock_guard lock(shared_->mutex);
        ++shared_->generation;
        runLoop = shared_->runLoop;
        // The tap's callback holds this shared block: do not let it hold the tap back.
        shared_->tap.reset();
    }
    // A callback of this tap may be waiting for the main thread, which may be this very
    // thread: release it so the run loop can see the stop.
    shared_->hopDone.notify_all();
    if (runLoopSource_) runLoopSource_->invalidate();
    if (runLoop) runLoop->stop();
    if (keyEventPort_) keyEventPort_->invalidate();
}

void MediaKeyHookInternals::enableTapOnItsThread(bool enabled) {
    std::shared_ptr<RunLoop> runLoop;
    {
        std::lock_guard lock(shared_->mutex);
        if (!shared_->tap || !shared_->runLoop) return;
        runLoop = shared_->runLoop;
    }
    std::weak_ptr<MediaKeyHookInternals> weak = weak_from_this();
    auto shared = shared_;
    runLoop->perform([weak, shared, enabled] {
        if (weak.expired()) return;
        std::shared_ptr<platform::EventTap> tap;
        {
            std::lock_guard lock(shared->mutex);
            tap = shared->tap;
        }
        if (tap) tap->enable(enabled);
    });
    runLoop->wakeUp();
}

platform::TapCallback
MediaKeyHookInternals::makeCallback(const std::weak_ptr<MediaKeyHookInternals>& self) {
    std::shared_ptr<TapThreadShared> shared;
    std::uint64_t generation = 0;
    if (auto strong = self.lock()) {
        shared = strong->shared_;
        std::lock_guard lock(shared->mutex);
        generation = shared->generation;
    }
    return [self, shared, generation](std::int32_t type,
                                      const InputEvent& event) -> std::optional<InputEvent> {
        if (!shared || self.expired()) return event;
        if (type == platform::kEventTypeTapDisabledByTimeout) {
            // The system gave up on us while the main thread was slow: take the tap back.
            std::shared_ptr<platform::EventTap> tap;
            {
                std::lock_guard lock(shared->mutex);
                if (shared->generation == generation) tap = shared->tap;
            }
            if (tap) tap->enable(true);
            return event;
        }
        // Disabled by user input: the user meant it, so the tap stays off.
        if (type == platform::kEventTypeTapDisabledByUserInput) return event;
        return decideOnMain(self, shared, generation, type, event);
    };
}

std::optional<InputEvent>
MediaKeyHookInternals::decideOnMain(const std::weak_ptr<MediaKeyHookInternals>& weak,
                                    const std::shared_ptr<TapThreadShared>& shared,
                                    std::uint64_t generation, std::int32_t type,
                                    const InputEvent& event) {
    std::shared_ptr<platform::MainQueue> mainQueue;
    {
        auto self = weak.lock();
        if (!self) return event;
        mainQueue = self->platform_.mainQueue;
        if (!mainQueue || mainQueue->isMainThread()) return self->handleTapEvent(event, type);
    } // no strong reference while waiting: the main thread may be dropping the hook

    struct Hop {
        bool done = false;
        std::optional<InputEvent> result;
    };
    auto hop = std::make_shared<Hop>();
    mainQueue->post([weak, shared, generation, hop, type, event] {
        std::optional<InputEvent> result = event;
        if (auto self = weak.lock()) {
            bool current = false;
            {
                std::lock_guard lock(shared->mutex);
                current = shared->generation == generation;
            }
            if (current) result = self->handleTapEvent(event, type);
        }
        {
            std::lock_guard lock(shared->mutex);
            hop->done = true;
            hop->result = std::move(result);
        }
        shared->hopDone.notify_all();
    });

    std::unique_lock lock(shared->mutex);
    shared->hopDone.wait(lock, [&] { return hop->done || shared->generation != generation; });
    // Abandoned by a teardown: the tap is going away, so the event goes on to the system.
    if (!hop->done) return event;
    return hop->result;
}

std::optional<InputEvent> MediaKeyHookInternals::handleTapEvent(const InputEvent& event,
                                                                std::int32_t type) {
    if (type == platform::kEventTypeKeyDown) return keyDownDecision(event);
    return systemDefinedDecision(event, type);
}

std::optional<InputEvent> MediaKeyHookInternals::systemDefinedDecision(const InputEvent& event,
                                                                       std::int32_t type) {
    if (!event.convertible) return event;

    const auto keyEvent = KeyEvent::fromData1(event.data1);
    const auto key = MediaKeyHook::keycodeToMediaKey(keyEvent.keycode);
    if (!key) return event;
    if (type != platform::kEventTypeSystemDefined) return event;
    if (event.subtype != platform::kSystemDefinedAuxControlButtons) return event;
    const auto& accepted = MediaKeyHook::acceptedSystemKeyCodes();
    if (std::find(accepted.begin(), accepted.end(), keyEvent.keycode) == accepted.end())
        return event;
    {
        auto owner = delegate_.lock();
        if (!owner) return event;
        if (!contains(owner->keysToWatch(), *key)) return event;
        if (!owner->interceptMediaKeys()) return event;
        if (!owner->observeBuiltIn() && owner->pointerOnBuiltInScreen()) return event;
    }

    auto owner = delegate_.lock();
    if (!owner) return std::nullopt;
    const auto again = KeyEvent::fromData1(event.data1);
    const std::optional<platform::ModifierFlags> modifiers = event.modifierFlags;
    if (!modeDelivers(owner->keyPressMode(), again.keyPressed)) return std::nullopt;
    if (auto receiver = owner->delegate()) receiver->handle(*key, again, modifiers);
    return std::nullopt;
}

std::optional<InputEvent> MediaKeyHookInternals::keyDownDecision(const InputEvent& event) {
    // A key code that does not fit the field's 32 bits is no key of ours.
    if (event.keyboardKeyCode < std::numeric_limits<std::int32_t>::min() ||
        event.keyboardKeyCode > std::numeric_limits<std::int32_t>::max())
        return event;
    const auto code = static_cast<std::int32_t>(event.keyboardKeyCode);
    const auto key = MediaKeyHook::functionKeyCodeToMediaKey(code);
    if (!key) return event;
    {
        auto owner = delegate_.lock();
        if (!owner || !contains(owner->keysToWatch(), *key)) return event;
        if (!owner->observeBuiltIn() && owner->pointerOnBuiltInScreen()) return event;
    }

    auto owner = delegate_.lock();
    if (!owner) return std::nullopt;
    const auto modifiers = event.convertible
                               ? std::optional<platform::ModifierFlags>(event.modifierFlags)
                               : std::nullopt;
    // Function keys have no key-up or repeat of their own here: every key-down is a press.
    const KeyEvent keyEvent{code, 0, true, false};
    const auto mapped = MediaKeyHook::functionKeyCodeToMediaKey(code);
    if (!mapped || !modeDelivers(owner->keyPressMode(), keyEvent.keyPressed)) return std::nullopt;
    if (auto receiver = owner->delegate()) receiver->handle(*mapped, keyEvent, modifiers);
    return std::nullopt;
}

// ---------------------------------------------------------------------------------------
// MediaKeyHook

std::atomic<bool> MediaKeyHook::useAlternateBrightnessKeys{true};

const std::vector<std::int32_t>& MediaKeyHook::acceptedSystemKeyCodes() {
    using namespace platform;
    static const std::vector<std::int32_t> codes = {
        kAuxKeyPlay,         kAuxKeyPrevious,       kAuxKeyNext,    kAuxKeyFast,      kAuxKeyRewind,
        kAuxKeyBrightnessUp, kAuxKeyBrightnessDown, kAuxKeySoundUp, kAuxKeySoundDown, kAuxKeyMute};
    return codes;
}

std::optional<MediaKey> MediaKeyHook::keycodeToMediaKey(std::int32_t code) {
    using namespace platform;
    switch (code) {
    case kAuxKeySoundUp:
        return MediaKey::volumeUp;
    case kAuxKeySoundDown:
        return MediaKey::volumeDown;
    case kAuxKeyBrightnessUp:
        return MediaKey::brightnessUp;
    case kAuxKeyBrightnessDown:
        return MediaKey::brightnessDown;
    case kAuxKeyMute:
        return MediaKey::mute;
    case kAuxKeyPlay:
        return MediaKey::playPause;
    case kAuxKeyNext:
        return MediaKey::next;
    case kAuxKeyPrevious:
        return MediaKey::previous;
    case kAuxKeyFast:
        return MediaKey::fastForward;
    case kAuxKeyRewind:
        return MediaKey::rewind;
    default:
        return std::nullopt;
    }
}

std::optional<MediaKey> MediaKeyHook::functionKeyCodeToMediaKey(std::int32_t code) {
    switch (code) {
    case 107:
        if (useAlternateBrightnessKeys) return MediaKey::brightnessDown;
        return std::nullopt;
    case 113:
        if (useAlternateBrightnessKeys) return MediaKey::brightnessUp;
        return std::nullopt;
    case 144:
        return MediaKey::brightnessUp;
    case 145:
        return MediaKey::brightnessDown;
    default:
        return std::nullopt;
    }
}

std::shared_ptr<MediaKeyHook> MediaKeyHook::create(platform::Platform platform,
                                                   std::weak_ptr<MediaKeyHookDelegate> delegate,
                                                   KeyPressMode mode, std::vector<MediaKey> keys,
                                                   bool observeBuiltIn) {
    return std::shared_ptr<MediaKeyHook>(new MediaKeyHook(std::move(platform), std::move(delegate),
                                                          mode, std::move(keys), observeBuiltIn));
}

MediaKeyHook::MediaKeyHook(platform::Platform platform,
                           std::weak_ptr<MediaKeyHookDelegate> delegate, KeyPressMode mode,
                           std::vector<MediaKey> keys, bool observeBuiltIn)
    : platform_(std::move(platform)), delegate_(std::move(delegate)),
      mediaApplicationWatcher_(std::make_shared<MediaApplicationWatcher>(platform_)),
      internals_(std::make_shared<MediaKeyHookInternals>(platform_)), keyPressMode_(mode),
      observeBuiltIn_(observeBuiltIn), keysToWatch_(keys.empty() ? allMediaKeys() : keys) {}

MediaKeyHook::~MediaKeyHook() {
    // The watcher outlives us (its distributed observers keep it), so stop it following
    // the workspace on our behalf; the internals tear their tap down as they go.
    mediaApplicationWatcher_->removeWorkspaceObservers();
}

void MediaKeyHook::start() {
    mediaApplicationWatcher_->setDelegate(weak_from_this());
    mediaApplicationWatcher_->start();
    internals_->setDelegate(weak_from_this());
    auto callback = MediaKeyHookInternals::makeCallback(internals_);
    if (const auto error = internals_->startWatchingMediaKeys(std::move(callback), false))
        reportTapError(*error);
}

void MediaKeyHook::stop() {
    mediaApplicationWatcher_->removeWorkspaceObservers();
    internals_->teardown();
    mediaApplicationWatcher_->setDelegate({});
    internals_->setDelegate({});
}

void MediaKeyHook::activate() {
    if (!platform_.workspace) return;
    const auto self = platform_.workspace->currentApplication();
    auto& apps = mediaApplicationWatcher_->mediaApps();
    apps.erase(std::remove(apps.begin(), apps.end(), self), apps.end());
    apps.insert(apps.begin(), self);
    mediaApplicationWatcher_->updateInterception();
}

void MediaKeyHook::setInterceptMediaKeys(bool intercept) {
    const bool changed = intercept != interceptMediaKeys_;
    interceptMediaKeys_ = intercept;
    if (changed) internals_->enableTapOnItsThread(intercept);
}

void MediaKeyHook::restartTap() {
    if (const auto error = internals_->restartTap()) reportTapError(*error);
}

void MediaKeyHook::reportTapError(EventTapError error) {
    // The program runs on without media keys; the workspace no longer matters to us. A
    // desktop program's standard output is read by no one, so the reason goes where a user
    // or a bug report will find it.
    mediaApplicationWatcher_->removeWorkspaceObservers();
    const auto text = description(error);
    SystemLog::keyboard().error(text);
    DiagnosticLog::log("Keyboard", text);
}

bool MediaKeyHook::pointerOnBuiltInScreen() const {
    if (!platform_.screens) return false;
    const auto pointer = platform_.screens->pointerLocation();
    for (const auto& screen : platform_.screens->screens()) {
        if (!mouseInRect(pointer, screen.frame)) continue;
        return screen.number && screen.builtIn;
    }
    return false;
}

} // namespace pw
