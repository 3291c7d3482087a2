#include "MediaKeyTestBed.h"

namespace pw::test {
namespace {

using Outcome = sim::InjectedEvent::Outcome;
using sim::SimEventTaps;

// The hook's tests see taps passed over when disabled or invalidated, and the newest tap
// first; here what they cannot see.
TEST(SimKeyboard, EventsTravelNewestTapFirstWithinEachTapsMask) {
    SimEventTaps taps;
    AppTap older(taps, /*swallow=*/2);
    AppTap newer(taps, /*swallow=*/3);
    EXPECT_EQ(taps.liveTaps(), (std::vector<sim::TapId>{2, 1}));
    auto down = taps.inject(SimEventTaps::systemDefined(0x00030A00));
    ASSERT_TRUE(down->wait());
    EXPECT_EQ(down->swallowedBy(), sim::TapId{2});
    platform::InputEvent flags;
    flags.type = 12; // outside both taps' masks
    auto other = taps.inject(flags);
    ASSERT_TRUE(other->wait());
    EXPECT_EQ(other->outcome(), Outcome::reachedSystem);
    EXPECT_EQ(newer.seen, std::vector<std::int32_t>{3});
    EXPECT_TRUE(older.seen.empty());
    newer.tap->enable(false);
    ASSERT_EQ(taps.enableCalls(2).size(), 1u);
    EXPECT_FALSE(taps.enableCalls(2)[0].onTapThread); // called from the test's thread
}

TEST(SimKeyboard, SourcesHoldEventsUntilAttachedAndStoppedLoopsPassThemOn) {
    SimEventTaps taps;
    AppTap tap(taps, /*swallow=*/-1, 0x4400, /*attach=*/false);
    std::vector<std::shared_ptr<sim::InjectedEvent>> early;
    for (std::int32_t code : {0, 1, 7})
        early.push_back(taps.inject(SimEventTaps::systemDefined(code << 16)));
    EXPECT_FALSE(early[0]->ready());
    tap.attachSource();
    for (const auto& e : early)
        ASSERT_TRUE(e->wait());
    EXPECT_EQ(tap.seen, (std::vector<std::int32_t>{0, 1, 7})); // in order
    EXPECT_TRUE(taps.tap(1)->attached);

    // Events queued on a run loop that then stops are handed on, not lost.
    std::promise<void> release;
    auto held = release.get_future().share();
    tap.loop->perform([held] { held.wait(); }); // keep the tap's thread busy
    auto queued = taps.inject(SimEventTaps::systemDefined(0x00020A00));
    tap.loop->stop();
    release.set_value();
    ASSERT_TRUE(queued->wait());
    EXPECT_EQ(queued->outcome(), Outcome::reachedSystem);

    // A tap whose source left its run loop is passed over; its notices go nowhere.
    tap.source->invalidate();
    auto late = taps.inject(SimEventTaps::systemDefined(0x00020A00));
    ASSERT_TRUE(late->wait());
    EXPECT_EQ(late->outcome(), Outcome::reachedSystem);
    auto notice = taps.sendTimeoutNotice(1);
    ASSERT_TRUE(notice->wait());
    EXPECT_EQ(notice->outcome(), Outcome::noticeDropped);
    EXPECT_FALSE(taps.isEnabled(1)); // the system disabled it all the same
    EXPECT_EQ(taps.sendUserInputNotice(99)->outcome(), Outcome::noticeDropped);
}

TEST(SimApplications, ObserversHearOnTheMainQueueOnlyWhileRegistered) {
    sim::SimMachine machine(laptopWithMonitor());
    auto& workspace = machine.workspace();
    std::vector<std::pair<platform::WorkspaceEvent, std::optional<std::string>>> heard;
    const auto token = workspace.addObserver(
        [&](platform::WorkspaceEvent e, const std::optional<platform::RunningApplication>& app) {
            heard.emplace_back(e, app ? app->bundleIdentifier : std::nullopt);
        });
    auto player = workspace.launch(std::string("com.example.player"));
    EXPECT_NE(player, workspace.currentApplication());
    workspace.activate(player);
    EXPECT_TRUE(heard.empty()); // nothing before the main queue runs
    machine.manualMainQueue()->runPending();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[1].first, platform::WorkspaceEvent::activated);
    EXPECT_EQ(workspace.frontmostApplication(), player);

    workspace.terminate(player); // queued, then the observer leaves before it runs
    workspace.removeObserver(token);
    machine.manualMainQueue()->runPending();
    EXPECT_EQ(heard.size(), 2u);
    EXPECT_EQ(workspace.runningApplications().size(), 1u); // this program
}

} // namespace
} // namespace pw::test
