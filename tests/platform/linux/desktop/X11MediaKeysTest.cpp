#include "platform/linux/desktop/X11MediaKeys.h"

#include "DesktopTestSupport.h"
#include "KeyTapTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>

namespace pw::linuxdesktop {
namespace {

using namespace std::chrono_literals;
using test::keyEvent;

class X11MediaKeysTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = test::VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        desk.emplace(server->name());
        log = std::make_shared<sim::MemorySystemLog>();
    }
    void TearDown() override { keys.reset(); }

    bool startKeys(platform::KeySet wanted = test::kFiveKeys) {
        keys = std::make_unique<X11MediaKeys>(server->name(), DesktopLog{log});
        return test::startKeys(*keys, recorder, wanted);
    }

    std::optional<test::VirtualXServer> server;
    std::optional<test::XDesk> desk;
    std::shared_ptr<sim::MemorySystemLog> log;
    test::KeyRecorder recorder;
    std::unique_ptr<X11MediaKeys> keys;
};

TEST_F(X11MediaKeysTest, GrabbedKeysReachOnlyTheProgramWithModifiers) {
    ASSERT_TRUE(startKeys());
    EXPECT_EQ(keys->heldKeys().size(), 5u);

    desk->key("Shift_L", true);
    desk->tap("XF86MonBrightnessUp");
    desk->key("Shift_L", false);
    const auto seen = recorder.waitFor(2);
    ASSERT_EQ(seen.size(), 2u);
    platform::KeyModifiers shift;
    shift.shift = true;
    EXPECT_EQ(seen[0], (platform::MediaKeyEvent{MediaKey::brightnessUp, {true, false}, shift}));
    EXPECT_EQ(seen[1], (platform::MediaKeyEvent{MediaKey::brightnessUp, {false, false}, shift}));

    // Nothing reached the focused window, and the keyboard was never frozen.
    const auto presses = desk->pressesUntil("a");
    ASSERT_FALSE(presses.empty());
    EXPECT_EQ(std::count(presses.begin(), presses.end(), desk->code("XF86MonBrightnessUp")), 0);
}

TEST_F(X11MediaKeysTest, OnlyWantedKeysAreTakenAndWantingNoneGivesThemBack) {
    ASSERT_TRUE(startKeys({MediaKey::brightnessUp}));
    EXPECT_EQ(keys->heldKeys(), std::vector<std::string>{"XF86MonBrightnessUp"});

    keys->want({{}, platform::KeyPressMode::keyDownAndUp, true});
    // Giving them back happens on the source's thread: type until the desktop has the key.
    std::vector<unsigned> presses;
    for (int attempt = 0; attempt < 50 && presses.size() < 2; ++attempt) {
        desk->tap("XF86MonBrightnessUp");
        presses = desk->pressesUntil("c");
    }
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86MonBrightnessUp"));

    const auto before = recorder.waitFor(0).size();
    keys->want({test::kFiveKeys, platform::KeyPressMode::keyDown, true});
    std::vector<platform::MediaKeyEvent> seen;
    // Taking them again happens on the source's thread: type until it has the key.
    for (int attempt = 0; attempt < 50 && seen.size() <= before; ++attempt) {
        desk->tap("XF86MonBrightnessDown");
        desk->pressesUntil("d");
        seen = recorder.waitFor(0);
    }
    ASSERT_GT(seen.size(), before);
    EXPECT_EQ(seen[before].key, MediaKey::brightnessDown);
    EXPECT_TRUE(seen[before].state.pressed);
}

TEST_F(X11MediaKeysTest, KeysHeldByAnotherProgramAreNamedAndLeftToIt) {
    ASSERT_TRUE(startKeys());
    log->clear();
    X11MediaKeys second(server->name(), DesktopLog{log});
    test::KeyRecorder other;
    ASSERT_TRUE(test::startKeys(second, other));
    EXPECT_TRUE(second.heldKeys().empty());
    const auto lines = log->messages("Keyboard");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "Brightness Up key (XF86MonBrightnessUp) is taken by another program; "
                        "it stays with that program");

    // Once the first program lets go, the keys reach the desktop, not the refused source.
    keys->stop();
    desk->tap("XF86AudioMute");
    const auto presses = desk->pressesUntil("a");
    ASSERT_EQ(presses.size(), 2u);
    EXPECT_EQ(presses[0], desk->code("XF86AudioMute"));
}

TEST_F(X11MediaKeysTest, ServerGoingAwayStopsTheKeysNotTheProgram) {
    ASSERT_TRUE(startKeys());
    desk.reset();
    server.reset();
    // The source's thread notices on its own; stopping joins it.
    keys->stop();
    const auto lines = log->messages("Keyboard");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "The X server went away: media keys stop"),
              lines.end());
}

TEST(X11MediaKeysStart, NoServerIsOneLineAndAnError) {
    auto log = std::make_shared<sim::MemorySystemLog>();
    X11MediaKeys keys(":4093", DesktopLog{log});
    EXPECT_EQ(keys.start(nullptr), platform::KeysError::refused);
    EXPECT_EQ(log->messages("Keyboard"),
              std::vector<std::string>{"Media keys unavailable: no X server at \":4093\""});
}

} // namespace
} // namespace pw::linuxdesktop
