#include "platform/linux/desktop/X11MediaKeys.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include "DesktopTestSupport.h"
#include "KeyTapTestSupport.h"
#include "platform/sim/MemorySystemLog.h"
#include "support/RunLoop.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace pw::linuxdesktop {
namespace {

using namespace std::chrono_literals;

constexpr std::int32_t kBrightnessUp = 2, kMute = 7;

std::int32_t data1(std::int32_t mediaCode, bool down) {
    return test::mediaData1(mediaCode, down);
}

using Recorder = test::TapRecorder;

class X11MediaKeysTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = test::VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        desk.emplace(server->name());
        log = std::make_shared<sim::MemorySystemLog>();
        loopThread.emplace();
        loop = loopThread->loop();
    }
    void TearDown() override {
        tap.reset();
        loopThread.reset();
    }

    std::shared_ptr<platform::EventTap> startTap(std::chrono::milliseconds limit = 1000ms) {
        taps = std::make_unique<X11EventTaps>(server->name(), DesktopLog{log}, limit);
        return test::startTap(*taps, recorder, loop);
    }

    std::optional<test::VirtualXServer> server;
    std::optional<test::XDesk> desk;
    std::shared_ptr<sim::MemorySystemLog> log;
    std::optional<test::LoopThread> loopThread;
    std::shared_ptr<RunLoop> loop;
    Recorder recorder;
    std::unique_ptr<X11EventTaps> taps;
    std::shared_ptr<platform::EventTap> tap;
};

TEST_F(X11MediaKeysTest, SwallowedKeyReachesOnlyTheTapAsASystemDefinedEvent) {
    tap = startTap();
    ASSERT_TRUE(tap);
    EXPECT_EQ(std::dynamic_pointer_cast<X11KeyTap>(tap)->heldKeys().size(), 5u);

    desk->key("Shift_L", true);
    desk->tap("XF86MonBrightnessUp");
    desk->key("Shift_L", false);
    const auto seen = recorder.waitFor(2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].first, platform::kEventTypeSystemDefined);
    EXPECT_EQ(seen[0].second.subtype, platform::kSystemDefinedAuxControlButtons);
    EXPECT_EQ(seen[0].second.data1, data1(kBrightnessUp, true));
    EXPECT_EQ(seen[0].second.modifierFlags, kShiftFlag);
    EXPECT_EQ(seen[1].second.data1, data1(kBrightnessUp, false));

    const auto presses = desk->pressesUntil("a");
    ASSERT_FALSE(presses.empty());
    EXPECT_EQ(std::count(presses.begin(), presses.end(), desk->code("XF86MonBrightnessUp")), 0);
}

TEST_F(X11MediaKeysTest, PassedKeyReachesTheDesktopAsBefore) {
    recorder.passOn = [](const platform::InputEvent& event) {
        return event.data1 == data1(kMute, true);
    };
    tap = startTap();
    ASSERT_TRUE(tap);
    desk->tap("XF86AudioMute");
    const auto presses = desk->pressesUntil("a");
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86AudioMute"));
    // The release went with the replayed press, so the tap saw the press alone; the next
    // press is a new one, not a repeat.
    desk->tap("XF86AudioMute");
    const auto seen = recorder.waitFor(2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].second.data1, data1(kMute, true));
    EXPECT_EQ(seen[1].second.data1, data1(kMute, true));
}

TEST_F(X11MediaKeysTest, DisabledTapLeavesTheKeysToTheDesktopUntilEnabled) {
    tap = startTap();
    ASSERT_TRUE(tap);
    tap->enable(false);
    desk->tap("XF86MonBrightnessDown"); // may race the ungrab: typed again below
    desk->pressesUntil("a");
    desk->tap("XF86MonBrightnessDown");
    auto presses = desk->pressesUntil("b");
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86MonBrightnessDown"));

    const auto before = recorder.waitFor(0).size();
    tap->enable(true);
    std::vector<std::pair<std::int32_t, platform::InputEvent>> seen;
    // Enabling is asynchronous on the tap's thread: type until the tap has the key again.
    for (int attempt = 0; attempt < 50 && seen.size() <= before; ++attempt) {
        desk->tap("XF86MonBrightnessDown");
        desk->pressesUntil("c");
        seen = recorder.waitFor(0);
    }
    ASSERT_GT(seen.size(), before);
    EXPECT_EQ(seen[before].second.data1, data1(3, true));
}

TEST_F(X11MediaKeysTest, UnansweredPressIsHandedBackSoTheKeyboardNeverStaysFrozen) {
    std::promise<void> release;
    auto released = release.get_future().share();
    recorder.passOn = [released](const platform::InputEvent&) {
        released.wait(); // a main thread that does not answer
        return false;
    };
    tap = startTap(50ms);
    ASSERT_TRUE(tap);
    desk->tap("XF86AudioRaiseVolume");
    const auto presses = desk->pressesUntil("a");
    release.set_value();
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86AudioRaiseVolume"));
}

TEST_F(X11MediaKeysTest, KeysHeldByAnotherProgramAreNamedAndLeftToIt) {
    tap = startTap();
    ASSERT_TRUE(tap);
    log->clear();
    X11EventTaps second(server->name(), DesktopLog{log});
    Recorder other;
    auto late = second.createTap(platform::TapLocation::session, platform::TapPlacement::headInsert,
                                 platform::TapOptions::defaultFilter,
                                 platform::kKeyDownAndSystemDefinedMask, other.callback());
    ASSERT_TRUE(late);
    EXPECT_TRUE(std::dynamic_pointer_cast<X11KeyTap>(late)->heldKeys().empty());
    const auto lines = log->messages("Keyboard");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "Brightness Up key (XF86MonBrightnessUp) is taken by another program; "
                        "it stays with that program");

    // Once the first program lets go, the keys reach the desktop, not the refused tap.
    tap.reset();
    desk->tap("XF86AudioMute");
    const auto presses = desk->pressesUntil("a");
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86AudioMute"));
}

TEST_F(X11MediaKeysTest, ServerGoingAwayStopsTheKeysNotTheProgram) {
    tap = startTap();
    ASSERT_TRUE(tap);
    desk.reset();
    server.reset();
    // The tap's thread notices on its own; tearing the tap down waits for it.
    tap.reset();
    const auto lines = log->messages("Keyboard");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "The X server went away: media keys stop"),
              lines.end());
}

TEST(X11MediaKeysStart, NoServerIsOneLineAndNoTap) {
    auto log = std::make_shared<sim::MemorySystemLog>();
    X11EventTaps taps(":4093", DesktopLog{log});
    EXPECT_FALSE(taps.createTap(platform::TapLocation::session, platform::TapPlacement::headInsert,
                                platform::TapOptions::defaultFilter,
                                platform::kKeyDownAndSystemDefinedMask, nullptr));
    EXPECT_EQ(log->messages("Keyboard"),
              std::vector<std::string>{"Media keys unavailable: no X server at \":4093\""});
}

} // namespace
} // namespace pw::linuxdesktop
