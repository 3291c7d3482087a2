#pragma once

#include "keyboard/MediaApplicationWatcher.h"
#include "keyboard/MediaKey.h"
#include "platform/Platform.h"
#include "support/RunLoop.h"
#include "support/SerialQueue.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace pw {

// Receives the watched keys, on the main thread.
class MediaKeyHookDelegate {
public:
    virtual ~MediaKeyHookDelegate() = default;
    virtual void handle(MediaKey key, const KeyEvent& event,
                        std::optional<platform::ModifierFlags> modifiers) = 0;
};

// What the tap's internals need of the hook that owns them.
class MediaKeyHookInternalsDelegate {
public:
    virtual ~MediaKeyHookInternalsDelegate() = default;
    virtual void setInterceptMediaKeys(bool intercept) = 0;
};

class MediaKeyHook;

// The event tap itself: created at the head of the user's input, its source on a run
// loop of its own thread ("MediaKeyHook Runloop"), every event handed synchronously to
// the main thread for the decision. Destroying it tears the tap down.
class MediaKeyHookInternals : public std::enable_shared_from_this<MediaKeyHookInternals> {
public:
    static constexpr const char* kRunLoopQueueLabel = "MediaKeyHook Runloop";

    explicit MediaKeyHookInternals(platform::Platform platform);
    ~MediaKeyHookInternals();

    void setDelegate(std::weak_ptr<MediaKeyHook> owner);

    // Creates the tap, its source and the run-loop queue. Without `restart` the owner
    // starts intercepting first.
    std::optional<EventTapError> startWatchingMediaKeys(platform::TapCallback callback,
                                                        bool restart);
    // Tears the current tap down and makes a new one at the head of the list.
    std::optional<EventTapError> restartTap();
    // Invalidates the source, stops the run loop and invalidates the tap (each if present).
    void teardown();

    // The decision for one event, on the main thread: the event to pass it on, nothing
    // to swallow it.
    std::optional<platform::InputEvent> handleTapEvent(const platform::InputEvent& event,
                                                       std::int32_t type);

    // Enables or disables the tap on its own thread (when there is one running).
    void enableTapOnItsThread(bool enabled);

    const std::shared_ptr<platform::EventTap>& keyEventPort() const { return keyEventPort_; }
    std::shared_ptr<RunLoop> runLoop() const;

    // The tap callback bound to these internals (held weakly), for `start` and restarts.
    static platform::TapCallback makeCallback(const std::weak_ptr<MediaKeyHookInternals>& self);

    const platform::TapCallback& callback() const { return callback_; }
    const std::shared_ptr<SerialQueue>& runLoopQueue() const { return runLoopQueue_; }

private:
    // What the tap's thread shares with the main thread. It outlives the internals, so a
    // callback still waiting for the main thread when they go can wake up and finish.
    struct TapThreadShared {
        std::mutex mutex;
        std::condition_variable hopDone;
        // Bumped by every teardown: callbacks and run-loop work of an older tap see it
        // changed and end instead of waiting on a main thread that is tearing them down.
        std::uint64_t generation = 0;
        std::shared_ptr<platform::EventTap> tap; // keyEventPort_, for the tap's thread
        std::shared_ptr<RunLoop> runLoop;        // set on the run-loop thread
    };

    // The decision reached from the tap's thread: inline when that is the main thread,
    // else posted to the main queue and awaited (or abandoned when the tap is torn down).
    static std::optional<platform::InputEvent>
    decideOnMain(const std::weak_ptr<MediaKeyHookInternals>& weak,
                 const std::shared_ptr<TapThreadShared>& shared, std::uint64_t generation,
                 std::int32_t type, const platform::InputEvent& event);
    std::optional<platform::InputEvent> systemDefinedDecision(const platform::InputEvent& event,
                                                              std::int32_t type);
    std::optional<platform::InputEvent> keyDownDecision(const platform::InputEvent& event);

    platform::Platform platform_;
    std::weak_ptr<MediaKeyHook> delegate_;
    std::shared_ptr<platform::EventTap> keyEventPort_;
    std::shared_ptr<platform::TapRunLoopSource> runLoopSource_;
    platform::TapCallback callback_;
    std::shared_ptr<SerialQueue> runLoopQueue_;
    std::shared_ptr<TapThreadShared> shared_ = std::make_shared<TapThreadShared>();
};

// Captures the keyboard's media keys before the system acts on them and hands the
// watched ones to the delegate, swallowing them.
class MediaKeyHook : public MediaKeyHookInternalsDelegate,
                     public MediaApplicationWatcherDelegate,
                     public std::enable_shared_from_this<MediaKeyHook> {
public:
    // Whether keyboard key codes 107 and 113 count as brightness keys.
    static std::atomic<bool> useAlternateBrightnessKeys;

    // The key codes of system-defined media-key events that are accepted, in order.
    static const std::vector<std::int32_t>& acceptedSystemKeyCodes();
    static std::optional<MediaKey> keycodeToMediaKey(std::int32_t code);
    static std::optional<MediaKey> functionKeyCodeToMediaKey(std::int32_t code);

    // An empty `keys` list watches all ten keys.
    static std::shared_ptr<MediaKeyHook> create(platform::Platform platform,
                                                std::weak_ptr<MediaKeyHookDelegate> delegate,
                                                KeyPressMode mode, std::vector<MediaKey> keys,
                                                bool observeBuiltIn);
    ~MediaKeyHook() override;

    void start();
    void stop();
    void activate();

    bool interceptMediaKeys() const { return interceptMediaKeys_; }
    void setInterceptMediaKeys(bool intercept) override;
    void restartTap() override;
    std::vector<MediaKey> keysToWatch() const override { return keysToWatch_; }

    KeyPressMode keyPressMode() const { return keyPressMode_; }
    bool observeBuiltIn() const { return observeBuiltIn_; }
    std::shared_ptr<MediaKeyHookDelegate> delegate() const { return delegate_.lock(); }
    MediaApplicationWatcher& mediaApplicationWatcher() { return *mediaApplicationWatcher_; }
    MediaKeyHookInternals& internals() { return *internals_; }

    // True when the pointer is over a screen whose display is built in.
    bool pointerOnBuiltInScreen() const;

private:
    MediaKeyHook(platform::Platform platform, std::weak_ptr<MediaKeyHookDelegate> delegate,
                 KeyPressMode mode, std::vector<MediaKey> keys, bool observeBuiltIn);
    void reportTapError(EventTapError error);

    platform::Platform platform_;
    std::weak_ptr<MediaKeyHookDelegate> delegate_;
    std::shared_ptr<MediaApplicationWatcher> mediaApplicationWatcher_;
    std::shared_ptr<MediaKeyHookInternals> internals_;
    KeyPressMode keyPressMode_;
    bool observeBuiltIn_ = true;
    std::vector<MediaKey> keysToWatch_;
    bool interceptMediaKeys_ = false; // main thread
};

} // namespace pw
