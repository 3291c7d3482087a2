#include "platform/linux/desktop/KGlobalAccelKeys.h"

#include "platform/linux/desktop/BusKeyTap.h"

#include "DesktopTestSupport.h"
#include "FakeBusService.h"
#include "KeyTapTestSupport.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <gtest/gtest.h>
#include <atomic>
#include <future>
#include <set>
#include <systemd/sd-bus.h>

namespace pw::linuxdesktop {
namespace {

using test::keyEvent;
using Keys = std::vector<platform::MediaKeyEvent>;

constexpr const char* kComponentPath = test::FakeBusService::kKGlobalAccelComponent;

std::unique_ptr<test::FakeBusService> fakeKGlobalAccel(const std::string& address,
                                                       std::set<std::int32_t> taken = {}) {
    return test::FakeBusService::startKGlobalAccel(address, std::move(taken));
}

void shortcut(test::FakeBusService& sender, const char* member, const char* action) {
    sender.onBus([&](sd_bus* bus) {
        sd_bus_emit_signal(bus, kComponentPath, "org.kde.kglobalaccel.Component", member, "ssx",
                           "panelwright", action, std::int64_t{1234});
    });
}

class KGlobalAccelKeysTest : public test::KeyTapOnBus {
protected:
    bool startKeys(std::vector<std::string> names = {}) {
        keys = std::make_unique<KGlobalAccelKeys>(bus->address(), DesktopLog{log},
                                                  std::move(names));
        return test::startKeys(*keys, recorder);
    }
    void TearDown() override { keys.reset(); }

    std::unique_ptr<KGlobalAccelKeys> keys;
};

TEST_F(KGlobalAccelKeysTest, AsksForTheFiveKeysAndDeliversTheirPressesAndReleases) {
    auto kde = fakeKGlobalAccel(bus->address());
    ASSERT_TRUE(kde);
    ASSERT_TRUE(startKeys());

    // The key numbers are the desktop toolkit's: another number would be another key.
    const auto asked = kde->calls("setShortcut");
    ASSERT_EQ(asked.size(), 5u);
    EXPECT_EQ(
        asked[0].arguments,
        R"(["panelwright", "XF86MonBrightnessUp", "Panelwright", "Brightness Up"], [16777394], 6)");
    const std::vector<std::string> codes{"[16777394]", "[16777395]", "[16777330]", "[16777328]",
                                         "[16777329]"};
    for (std::size_t i = 0; i < codes.size(); ++i)
        EXPECT_NE(asked[i].arguments.find(codes[i]), std::string::npos) << asked[i].arguments;
    EXPECT_EQ(kde->calls("doRegister").size(), 5u);
    EXPECT_EQ(keys->heldKeys().size(), 5u);
    EXPECT_TRUE(log->messages("Keyboard").empty());

    // Only the service's own signals count.
    auto impostor = test::FakeBusService::start(bus->address(), nullptr);
    ASSERT_TRUE(impostor);
    shortcut(*impostor, "globalShortcutPressed", "XF86MonBrightnessUp");
    shortcut(*kde, "globalShortcutPressed", "XF86AudioMute");
    shortcut(*kde, "globalShortcutPressed", "XF86AudioMute");
    shortcut(*kde, "globalShortcutReleased", "XF86AudioMute");
    // Until the service is known to tell releases, each press is followed by a release at
    // once, so a program that acts on releases is not left waiting; the first real release
    // then finds nothing held.
    EXPECT_EQ(recorder.waitFor(4),
              (Keys{keyEvent(MediaKey::mute, true), keyEvent(MediaKey::mute, false),
                    keyEvent(MediaKey::mute, true), keyEvent(MediaKey::mute, false)}));
}

TEST_F(KGlobalAccelKeysTest, ReleasesFromTheServiceEndHeldKeysAndMarkRepeats) {
    auto kde = fakeKGlobalAccel(bus->address());
    ASSERT_TRUE(kde);
    ASSERT_TRUE(startKeys());
    shortcut(*kde, "globalShortcutReleased", "XF86MonBrightnessUp"); // nothing was down
    shortcut(*kde, "globalShortcutPressed", "XF86MonBrightnessUp");
    shortcut(*kde, "globalShortcutPressed", "XF86MonBrightnessUp");
    shortcut(*kde, "globalShortcutReleased", "XF86MonBrightnessUp");
    EXPECT_EQ(recorder.waitFor(3), (Keys{keyEvent(MediaKey::brightnessUp, true),
                                         keyEvent(MediaKey::brightnessUp, true, true),
                                         keyEvent(MediaKey::brightnessUp, false)}));
}

TEST_F(KGlobalAccelKeysTest, KeyAnotherComponentHoldsIsNamedOnceAndNeverDelivered) {
    auto kde = fakeKGlobalAccel(bus->address(), {0x01000071});
    ASSERT_TRUE(kde);
    ASSERT_TRUE(startKeys());
    EXPECT_EQ(
        log->messages("Keyboard"),
        std::vector<std::string>{
            "Mute key (XF86AudioMute) is taken by another program; it stays with that program"});
    const auto held = keys->heldKeys();
    EXPECT_EQ(std::count(held.begin(), held.end(), "XF86AudioMute"), 0);
    EXPECT_EQ(held.size(), 4u);

    shortcut(*kde, "globalShortcutPressed", "XF86AudioMute");
    shortcut(*kde, "globalShortcutPressed", "XF86MonBrightnessUp");
    EXPECT_EQ(recorder.waitFor(2), (Keys{keyEvent(MediaKey::brightnessUp, true),
                                         keyEvent(MediaKey::brightnessUp, false)}));
}

TEST_F(KGlobalAccelKeysTest, WantingNoKeysAndStoppingGiveTheKeysBackToTheDesktop) {
    auto kde = fakeKGlobalAccel(bus->address());
    ASSERT_TRUE(kde);
    ASSERT_TRUE(startKeys({"XF86MonBrightnessUp", "XF86MonBrightnessDown"}));
    EXPECT_EQ(kde->calls("setShortcut").size(), 2u);

    keys->want({{}, platform::KeyPressMode::keyDownAndUp, true});
    const auto inactive = kde->waitForCalls("setInactive", 2);
    ASSERT_EQ(inactive.size(), 2u);
    EXPECT_EQ(inactive[0].arguments,
              R"(["panelwright", "XF86MonBrightnessUp", "Panelwright", "Brightness Up"])");

    keys->want({test::kFiveKeys, platform::KeyPressMode::keyDownAndUp, true});
    EXPECT_EQ(kde->waitForCalls("setShortcut", 4).size(), 4u);
    shortcut(*kde, "globalShortcutPressed", "XF86MonBrightnessDown");
    EXPECT_EQ(recorder.waitFor(1).front(), keyEvent(MediaKey::brightnessDown, true));

    keys->stop();
    const auto unregistered = kde->waitForCalls("unregister", 2);
    ASSERT_EQ(unregistered.size(), 2u);
    EXPECT_EQ(unregistered[0].arguments, R"("panelwright", "XF86MonBrightnessUp")");
    EXPECT_EQ(unregistered[1].arguments, R"("panelwright", "XF86MonBrightnessDown")");
}

TEST_F(KGlobalAccelKeysTest, NoServiceIsOneLineAndAnError) {
    EXPECT_FALSE(startKeys());
    EXPECT_EQ(log->messages("Keyboard"),
              std::vector<std::string>{
                  "Media keys unavailable: org.kde.kglobalaccel is not on the session bus"});
}

// A service that gives up on the tap's own bus thread: that thread must still be joined by
// whoever destroys the tap, never left running on a tap destroyed under it (the thread
// sanitizer sees the race, and the keys are not given back before the tap is gone).
TEST_F(KGlobalAccelKeysTest, ATapGivenUpOnItsOwnThreadIsJoinedWhenDestroyed) {
    struct GivingUp final : KeyService {
        std::promise<void>& gaveUp;
        std::atomic<bool>& stopped;
        GivingUp(std::promise<void>& g, std::atomic<bool>& s) : gaveUp(g), stopped(s) {}
        void setActive(BusKeyTap& tap, bool) override {
            tap.invalidate();
            gaveUp.set_value();
        }
        void stop(BusKeyTap&) override { stopped = true; }
    };
    std::promise<void> gaveUp;
    std::atomic<bool> stopped = false;
    std::string whyNot;
    auto connection = openBus(bus->address(), BusKind::session, whyNot);
    ASSERT_TRUE(connection) << whyNot;
    auto tap = std::make_unique<BusKeyTap>(std::move(connection), std::make_shared<KeyDelivery>(),
                                           DesktopLog{log});
    ASSERT_TRUE(tap->start(std::make_unique<GivingUp>(gaveUp, stopped), whyNot));
    tap->enable(false); // the service hears it on the bus thread, and gives up there
    gaveUp.get_future().wait();
    tap.reset();
    EXPECT_TRUE(stopped);
}

} // namespace
} // namespace pw::linuxdesktop
