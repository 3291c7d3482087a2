#pragma once

#include "platform/MediaKeys.h"
#include "platform/macos/Workspace.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace pw::macos {

// What the watcher needs of the key source that owns it.
class MediaApplicationWatcherDelegate {
public:
    virtual ~MediaApplicationWatcherDelegate() = default;
    virtual void setInterceptMediaKeys(bool intercept) = 0;
    virtual void restartTap() = 0;
    virtual platform::KeySet keysToWatch() const = 0;
};

// Tracks which media application the user used last, so that playback keys are taken
// only while this application is in front, and asks for the tap to move back to the
// head of the list when a known media player starts. Main queue only.
class MediaApplicationWatcher : public std::enable_shared_from_this<MediaApplicationWatcher> {
public:
    static constexpr std::string_view kDidStartNotification = "MediaKeyHookDidStart";
    static constexpr std::string_view kReplyNotification = "MediaKeyHookReply";

    // The 32 bundle identifiers of known media players, in order.
    static const std::vector<std::string_view>& staticWhitelist();

    // `ownIdentifier` gives this application's bundle identifier, when it has one (read
    // at every use). Either centre may be null.
    MediaApplicationWatcher(std::shared_ptr<Workspace> workspace,
                            std::shared_ptr<DistributedNotifications> distributed,
                            std::function<std::optional<std::string>()> ownIdentifier);
    ~MediaApplicationWatcher();

    void setDelegate(std::weak_ptr<MediaApplicationWatcherDelegate> delegate);

    // Registers for workspace and distributed notifications and announces this application.
    void start();
    // Stops following the workspace (distributed observers stay for the life of the process).
    void removeWorkspaceObservers();

    void applicationLaunched(const std::optional<RunningApplication>& app);
    void applicationActivated(const std::optional<RunningApplication>& app);
    void applicationTerminated(const std::optional<RunningApplication>& app);
    void updateInterception();

    // Distributed-notification handlers: another application announced itself, or
    // answered our announcement.
    void handleAnnouncement(const std::optional<std::string>& object);
    void handleReply(const std::optional<std::string>& object);

    // This application's bundle identifier, when it has one.
    std::optional<std::string> ownBundleIdentifier() const;

    // The static list plus this application's own identifier (when it has one).
    std::set<std::string, std::less<>> whitelistInForce() const;

    std::vector<RunningApplication>& mediaApps() { return mediaApps_; }
    const std::set<std::string, std::less<>>& dynamicWhitelist() const { return dynamicWhitelist_; }

private:
    bool isThisApplication(const RunningApplication& app) const;
    void postToDistributed(std::string_view name);

    // Everything but the distributed centre: its observers hold this watcher strongly,
    // so holding the centre strongly here would make a cycle that outlives the machine.
    std::shared_ptr<Workspace> workspace_;
    std::function<std::optional<std::string>()> ownIdentifier_;
    std::weak_ptr<DistributedNotifications> distributed_;
    std::vector<RunningApplication> mediaApps_;
    std::weak_ptr<MediaApplicationWatcherDelegate> delegate_;
    std::set<std::string, std::less<>> dynamicWhitelist_;
    ObserverToken workspaceToken_ = 0;
};

} // namespace pw::macos
