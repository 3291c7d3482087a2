#pragma once

#include "platform/MediaKeys.h"
#include "platform/macos/EventTap.h"
#include "platform/macos/MediaApplicationWatcher.h"
#include "platform/macos/Workspace.h"
#include "support/RunLoop.h"
#include "support/SerialQueue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pw::macos {

// The Mac's media keys: an event tap at the head of the user's input, its source on a run
// loop of its own thread ("MediaKeyHook Runloop"). Every event is decided there, from what
// the source holds (the wish, whether it intercepts, where the pointer is): a key taken is
// swallowed and handed to `onKey` from that thread; nothing waits for the main thread. The
// system's timeout notice turns the tap back on at once; a user-input notice leaves it off.
//
// The media application handshake (MediaApplicationWatcher) runs on the main queue: it
// switches playback keys off while another media player is in front, and moves the tap
// back to the head of the list when a known player starts.
class TapMediaKeys final : public platform::MediaKeys,
                           public MediaApplicationWatcherDelegate,
                           public std::enable_shared_from_this<TapMediaKeys> {
public:
    static constexpr const char* kRunLoopQueueLabel = "MediaKeyHook Runloop";

    // What the source uses of the Mac machine. Every member but `taps` may be empty.
    struct Machine {
        std::shared_ptr<EventTaps> taps;
        std::shared_ptr<Workspace> workspace;
        std::shared_ptr<DistributedNotifications> distributed;
        std::function<std::optional<std::string>()> ownIdentifier;
        // Whether the pointer is over a built-in panel; asked on the tap's thread.
        std::function<bool()> pointerOnBuiltInPanel;
        bool alternateBrightnessKeys = true; // key codes 107 and 113
    };

    static std::shared_ptr<TapMediaKeys> create(Machine machine);
    ~TapMediaKeys() override;

    void want(const platform::KeyWish& wish) override;
    std::optional<platform::KeysError> start(OnKey onKey) override;
    void stop() override;

    // This application becomes the front media application.
    void activate();

    // MediaApplicationWatcherDelegate (main queue).
    void setInterceptMediaKeys(bool intercept) override;
    void restartTap() override;
    platform::KeySet keysToWatch() const override;

    bool intercepting() const;
    MediaApplicationWatcher& watcher() { return *watcher_; }
    // The running tap's run loop, for tests that wait on its thread.
    std::shared_ptr<RunLoop> runLoop() const;

private:
    explicit TapMediaKeys(Machine machine);

    // What the tap's thread shares with the main thread; it outlives a torn-down tap.
    struct Shared {
        mutable std::mutex mutex;
        std::uint64_t generation = 0; // bumped by every teardown
        platform::KeyWish wish;
        bool intercepting = false;
        OnKey onKey;
        std::shared_ptr<EventTap> tap;
        std::shared_ptr<RunLoop> runLoop;
    };
    static TapCallback makeCallback(std::shared_ptr<Shared> shared, std::uint64_t generation,
                                    std::function<bool()> pointer, bool alternate);
    std::optional<platform::KeysError> openTap();
    void teardown();

    Machine machine_;
    std::shared_ptr<MediaApplicationWatcher> watcher_;
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
    std::shared_ptr<TapRunLoopSource> source_;
    std::unique_ptr<SerialQueue> runLoopQueue_; // joined by teardown
    bool started_ = false;
};

} // namespace pw::macos
