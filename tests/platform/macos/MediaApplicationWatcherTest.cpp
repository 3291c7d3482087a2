#include "platform/macos/MediaApplicationWatcher.h"

#include "MacKeysTestBed.h"
#include "platform/sim/VirtualClock.h"

namespace pw::test {
namespace {

using macos::RunningApplication;
using platform::KeySet;

// The watcher's owner, reduced to what the watcher sees of it.
class FakeOwner final : public macos::MediaApplicationWatcherDelegate {
public:
    explicit FakeOwner(KeySet keys) : keys_(keys) {}
    void setInterceptMediaKeys(bool value) override { intercept.push_back(value); }
    void restartTap() override { ++restarts; }
    KeySet keysToWatch() const override { return keys_; }
    std::vector<bool> intercept; // every value set, in order
    int restarts = 0;

private:
    KeySet keys_;
};

class WatcherBed : public ::testing::Test {
protected:
    // The simulated Mac's own watcher, with a stand-in for the key source around it.
    void startWatcher(KeySet keys) {
        owner = std::make_shared<FakeOwner>(keys);
        watcher = &std::dynamic_pointer_cast<macos::TapMediaKeys>(machine.platform().mediaKeys)
                       ->watcher();
        watcher->setDelegate(owner);
        watcher->start();
        main().runPending();
    }
    std::vector<std::string> bundles() {
        std::vector<std::string> ids;
        for (const auto& app : watcher->mediaApps())
            ids.push_back(app.bundleIdentifier.value_or(""));
        return ids;
    }
    std::size_t repliesFromUs() {
        std::size_t n = 0;
        for (const auto& post : machine.distributedNotifications().posted())
            n += post.name == "MediaKeyHookReply";
        return n;
    }
    sim::ManualMainQueue& main() { return *machine.manualMainQueue(); }
    sim::SimWorkspace& workspace() { return machine.workspace(); }
    RunningApplication self() { return workspace().currentApplication(); }

    sim::SimMachine machine{laptopWithMonitor()};
    std::shared_ptr<FakeOwner> owner;
    macos::MediaApplicationWatcher* watcher = nullptr;
};

TEST_F(WatcherBed, WhitelistInForceIsTheStaticListPlusOurOwnIdentifier) {
    const auto& list = macos::MediaApplicationWatcher::staticWhitelist();
    startWatcher({});
    EXPECT_EQ(watcher->whitelistInForce().size(), list.size() + 1);
    EXPECT_TRUE(watcher->whitelistInForce().contains("com.panelwright.app"));
    machine.host().setBuild({});
    EXPECT_EQ(watcher->whitelistInForce().size(), list.size());
}

TEST_F(WatcherBed, ActivationsOrderMediaAppsAndDecideInterceptionForPlaybackKeys) {
    startWatcher({MediaKey::playPause, MediaKey::volumeUp});
    auto spotify = workspace().launch(std::string("com.spotify.client"));
    auto editor = workspace().launch(std::string("com.example.editor"));
    auto nameless = workspace().launch(std::nullopt);
    main().runPending();
    EXPECT_EQ(owner->restarts, 1); // spotify is a known player; the others are not

    workspace().activate(spotify);
    main().runPending();
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.spotify.client"}));
    EXPECT_EQ(owner->intercept, (std::vector<bool>{false}));

    workspace().activate(self());
    workspace().activate(editor);   // in no list: nothing happens
    workspace().activate(nameless); // no identifier: nothing happens
    main().runPending();
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.panelwright.app", "com.spotify.client"}));
    EXPECT_EQ(owner->intercept, (std::vector<bool>{false, true}));

    // Spotify back in front, then it quits: we are front again and take the keys.
    workspace().activate(spotify);
    main().runPending();
    workspace().terminate(spotify);
    main().runPending();
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.panelwright.app"}));
    EXPECT_EQ(owner->intercept, (std::vector<bool>{false, true, false, true}));

    // The last media app quitting leaves interception as it is.
    workspace().terminate(self());
    workspace().notify(macos::WorkspaceEvent::terminated, std::nullopt);
    main().runPending();
    EXPECT_TRUE(watcher->mediaApps().empty());
    EXPECT_EQ(owner->intercept.size(), 4u);
}

TEST_F(WatcherBed, DisplayKeysOnlyAreNeverSwitchedOffByTheWatcher) {
    startWatcher(kDisplayKeys);
    auto vlc = workspace().launch(std::string("org.videolan.vlc"));
    workspace().activate(vlc);
    workspace().activate(self());
    workspace().activate(vlc);
    workspace().terminate(vlc);
    main().runPending();
    EXPECT_EQ(owner->restarts, 1);
    EXPECT_TRUE(owner->intercept.empty());
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.panelwright.app"}));

    // Launching ourselves, as the workspace reports it, does not restart our own tap.
    workspace().notify(macos::WorkspaceEvent::launched, self());
    main().runPending();
    EXPECT_EQ(owner->restarts, 1);
}

TEST_F(WatcherBed, AnnouncementsAndRepliesFillTheDynamicWhitelist) {
    startWatcher({MediaKey::playPause});
    // Our own announcement came back to us: nothing added, nobody answered.
    ASSERT_EQ(machine.distributedNotifications().posted().size(), 1u);
    EXPECT_EQ(machine.distributedNotifications().posted()[0].name, "MediaKeyHookDidStart");
    EXPECT_EQ(machine.distributedNotifications().posted()[0].object, "com.panelwright.app");
    EXPECT_TRUE(watcher->dynamicWhitelist().empty());
    EXPECT_EQ(repliesFromUs(), 0u);

    // Another application on the same bus, with a main queue of its own.
    sim::VirtualClock otherClock;
    auto otherMain = std::make_shared<sim::ManualMainQueue>(otherClock);
    sim::SimDistributedNotifications other(machine.distributedBus(), otherMain);
    std::vector<std::optional<std::string>> repliesSeenByOther;
    other.addObserver("MediaKeyHookReply", [&](const std::optional<std::string>& o) {
        repliesSeenByOther.push_back(o);
    });
    other.post("MediaKeyHookDidStart", std::string("com.example.keys"));
    other.post("MediaKeyHookDidStart", std::nullopt); // no object: ignored
    main().runPending();
    otherMain->runPending();
    EXPECT_EQ(watcher->dynamicWhitelist(),
              (std::set<std::string, std::less<>>{"com.example.keys"}));
    EXPECT_EQ(repliesFromUs(), 1u);
    EXPECT_EQ(repliesSeenByOther,
              (std::vector<std::optional<std::string>>{std::string("com.panelwright.app")}));

    // Replies add without answering; our own identifier never counts.
    other.post("MediaKeyHookReply", std::string("com.example.answer"));
    other.post("MediaKeyHookReply", std::string("com.panelwright.app"));
    other.post("MediaKeyHookDidStart", std::string("com.panelwright.app"));
    main().runPending();
    EXPECT_EQ(watcher->dynamicWhitelist().size(), 2u);
    EXPECT_TRUE(watcher->dynamicWhitelist().contains("com.example.answer"));
    EXPECT_EQ(repliesFromUs(), 1u);

    // An application known only by announcement becomes a media app when activated, but
    // its launch does not move our tap.
    auto keys = workspace().launch(std::string("com.example.keys"));
    workspace().activate(keys);
    main().runPending();
    EXPECT_EQ(owner->restarts, 0);
    EXPECT_EQ(bundles(), (std::vector<std::string>{"com.example.keys"}));
    EXPECT_EQ(owner->intercept, (std::vector<bool>{false}));

    // Without an identifier of our own, announcements carry none and every string counts.
    machine.host().setBuild({});
    other.post("MediaKeyHookDidStart", std::string("com.panelwright.app"));
    main().runPending();
    EXPECT_TRUE(watcher->dynamicWhitelist().contains("com.panelwright.app"));
    ASSERT_EQ(repliesFromUs(), 2u);
    EXPECT_EQ(machine.distributedNotifications().posted().back().object, std::nullopt);
}

// Two media-key applications of one session find each other, whichever starts first.
TEST(MediaKeyHandshake, TwoApplicationsLearnEachOtherWithOneReplyEach) {
    sim::SimMachine first(laptopWithMonitor());
    auto firstKeys = std::dynamic_pointer_cast<macos::TapMediaKeys>(first.platform().mediaKeys);
    firstKeys->start([](const platform::MediaKeyEvent&) {});
    first.manualMainQueue()->runPending();

    // The second application shares the first one's session bus.
    sim::SimMachine second(laptopWithMonitor());
    auto secondCentre = std::make_shared<sim::SimDistributedNotifications>(
        first.distributedBus(), second.platform().mainQueue);
    macos::TapMediaKeys::Machine mac;
    mac.distributed = secondCentre;
    mac.ownIdentifier = [] { return std::optional<std::string>("com.example.second"); };
    auto secondKeys = macos::TapMediaKeys::create(mac);
    EXPECT_EQ(secondKeys->start([](const platform::MediaKeyEvent&) {}),
              platform::KeysError::refused); // no taps on this one: the handshake goes on
    for (int i = 0; i < 3; ++i) {
        first.manualMainQueue()->runPending();
        second.manualMainQueue()->runPending();
    }

    EXPECT_EQ(firstKeys->watcher().dynamicWhitelist(),
              (std::set<std::string, std::less<>>{"com.example.second"}));
    EXPECT_EQ(secondKeys->watcher().dynamicWhitelist(),
              (std::set<std::string, std::less<>>{"com.panelwright.app"}));
    EXPECT_EQ(first.distributedBus()->posts("MediaKeyHookReply").size(), 1u);
    EXPECT_EQ(secondCentre->posted().size(), 1u); // its announcement, and no reply
    firstKeys->stop();
    secondKeys->stop();
}

} // namespace
} // namespace pw::test
