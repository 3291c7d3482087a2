#include "platform/macos/MediaApplicationWatcher.h"

#include <algorithm>
#include <utility>

namespace pw::macos {

using platform::MediaKey;

namespace {

void removeAll(std::vector<RunningApplication>& apps,
               const RunningApplication& app) {
    apps.erase(std::remove(apps.begin(), apps.end(), app), apps.end());
}

} // namespace

const std::vector<std::string_view>& MediaApplicationWatcher::staticWhitelist() {
    static const std::vector<std::string_view> list = {
        "at.justp.Theremin",
        "co.rackit.mate",
        "com.Timenut.SongKey",
        "com.apple.Aperture",
        "com.apple.QuickTimePlayerX",
        "com.apple.iPhoto",
        "com.apple.iTunes",
        "com.apple.iWork.Keynote",
        "com.apple.quicktimeplayer",
        "com.beardedspice.BeardedSpice",
        "com.beatport.BeatportPro",
        "com.bitcartel.pandorajam",
        "com.ilabs.PandorasHelper",
        "com.jriver.MediaCenter18",
        "com.jriver.MediaCenter19",
        "com.jriver.MediaCenter20",
        "com.macromedia.fireworks",
        "com.mahasoftware.pandabar",
        "com.netease.163music",
        "com.plexsquared.Plex",
        "com.plug.Plug",
        "com.plug.Plug2",
        "com.soundcloud.desktop",
        "com.spotify.client",
        "com.ttitt.b-music",
        "fm.last.Last.fm",
        "fm.last.Scrobbler",
        "org.clementine-player.clementine",
        "org.niltsh.MPlayerX",
        "org.quodlibet.quodlibet",
        "org.videolan.vlc",
        "ru.ya.themblsha.YandexMusic",
    };
    return list;
}

MediaApplicationWatcher::MediaApplicationWatcher(
    std::shared_ptr<Workspace> workspace, std::shared_ptr<DistributedNotifications> distributed,
    std::function<std::optional<std::string>()> ownIdentifier)
    : workspace_(std::move(workspace)), ownIdentifier_(std::move(ownIdentifier)),
      distributed_(distributed) {}

MediaApplicationWatcher::~MediaApplicationWatcher() {
    removeWorkspaceObservers();
}

void MediaApplicationWatcher::setDelegate(std::weak_ptr<MediaApplicationWatcherDelegate> delegate) {
    delegate_ = std::move(delegate);
}

std::optional<std::string> MediaApplicationWatcher::ownBundleIdentifier() const {
    return ownIdentifier_ ? ownIdentifier_() : std::nullopt;
}

std::set<std::string, std::less<>> MediaApplicationWatcher::whitelistInForce() const {
    std::set<std::string, std::less<>> list(staticWhitelist().begin(), staticWhitelist().end());
    if (auto own = ownBundleIdentifier()) list.insert(std::move(*own));
    return list;
}

bool MediaApplicationWatcher::isThisApplication(const RunningApplication& app) const {
    return workspace_ && app == workspace_->currentApplication();
}

void MediaApplicationWatcher::postToDistributed(std::string_view name) {
    if (auto centre = distributed_.lock()) centre->post(name, ownBundleIdentifier());
}

void MediaApplicationWatcher::start() {
    if (workspace_ && workspaceToken_ == 0) {
        // Held weakly: the hook removes this observer when it stops, and a watcher that
        // is gone must not be called.
        std::weak_ptr<MediaApplicationWatcher> weak = weak_from_this();
        workspaceToken_ = workspace_->addObserver(
            [weak](WorkspaceEvent event,
                   const std::optional<RunningApplication>& app) {
                auto self = weak.lock();
                if (!self) return;
                switch (event) {
                case WorkspaceEvent::launched:
                    self->applicationLaunched(app);
                    break;
                case WorkspaceEvent::activated:
                    self->applicationActivated(app);
                    break;
                case WorkspaceEvent::terminated:
                    self->applicationTerminated(app);
                    break;
                }
            });
    }

    auto centre = distributed_.lock();
    if (!centre) return;
    postToDistributed(kDidStartNotification);
    // These two hold the watcher strongly on purpose: once announced, this application
    // keeps answering other media-key applications for as long as it runs.
    auto self = shared_from_this();
    centre->addObserver(kDidStartNotification, [self](const std::optional<std::string>& object) {
        self->handleAnnouncement(object);
    });
    centre->addObserver(kReplyNotification, [self](const std::optional<std::string>& object) {
        self->handleReply(object);
    });
}

void MediaApplicationWatcher::removeWorkspaceObservers() {
    if (workspaceToken_ != 0 && workspace_)
        workspace_->removeObserver(workspaceToken_);
    workspaceToken_ = 0;
}

void MediaApplicationWatcher::handleAnnouncement(const std::optional<std::string>& object) {
    if (!object) return;
    const auto own = ownBundleIdentifier();
    if (own && *object == *own) return; // our own announcement coming back
    dynamicWhitelist_.insert(*object);
    postToDistributed(kReplyNotification);
}

void MediaApplicationWatcher::handleReply(const std::optional<std::string>& object) {
    if (!object) return;
    const auto own = ownBundleIdentifier();
    if (own && *object == *own) return;
    dynamicWhitelist_.insert(*object);
}

void MediaApplicationWatcher::applicationLaunched(
    const std::optional<RunningApplication>& app) {
    if (!app || !app->bundleIdentifier) return;
    // Only the known players and this application count here: an application that merely
    // announced itself takes the keys with its own tap, not by moving ours.
    if (!whitelistInForce().contains(*app->bundleIdentifier)) return;
    if (isThisApplication(*app)) return;
    if (auto delegate = delegate_.lock()) delegate->restartTap();
}

void MediaApplicationWatcher::applicationActivated(
    const std::optional<RunningApplication>& app) {
    if (!app || !app->bundleIdentifier) return;
    const auto& id = *app->bundleIdentifier;
    if (!whitelistInForce().contains(id) && !dynamicWhitelist_.contains(id)) return;
    removeAll(mediaApps_, *app);
    mediaApps_.insert(mediaApps_.begin(), *app);
    updateInterception();
}

void MediaApplicationWatcher::applicationTerminated(
    const std::optional<RunningApplication>& app) {
    if (!app) return;
    removeAll(mediaApps_, *app);
    updateInterception();
}

void MediaApplicationWatcher::updateInterception() {
    if (mediaApps_.empty()) return;
    const bool mine = isThisApplication(mediaApps_.front());
    auto delegate = delegate_.lock();
    if (!delegate) return;
    // A tap that watches only brightness, volume and mute keys is never switched off here:
    // those keys belong to no media player.
    const auto keys = delegate->keysToWatch();
    for (auto key : {MediaKey::playPause, MediaKey::previous, MediaKey::next, MediaKey::rewind,
                     MediaKey::fastForward})
        if (keys.contains(key)) return delegate->setInterceptMediaKeys(mine);
}

} // namespace pw::macos
