#include "platform/linux/desktop/KeysChoice.h"

#include "DesktopTestSupport.h"
#include "FakeBusService.h"
#include "KeyTapTestSupport.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <X11/Xlib.h>

namespace pw::linuxdesktop {
namespace {

using test::mediaData1;

SessionFacts wayland() {
    SessionFacts facts;
    facts.sessionType = "wayland";
    facts.xDisplay = ":0"; // its X server cannot grab keys for us: never used
    return facts;
}

TEST(KeysChoice, WaylandTakesKdeFirstThenThePortalElseSaysWhy) {
    auto bus = test::PrivateBus::start();
    if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    auto log = std::make_shared<sim::MemorySystemLog>();

    EXPECT_FALSE(chooseKeys(wayland(), bus->address(), DesktopLog{log}));
    {
        auto portal = test::FakeBusService::start(
            bus->address(), "org.freedesktop.portal.Desktop",
            {{"Get", [](sd_bus*, sd_bus_message* call) { sd_bus_reply_method_return(call, "v", "u", 1u); }}});
        ASSERT_TRUE(portal);
        EXPECT_TRUE(chooseKeys(wayland(), bus->address(), DesktopLog{log}));
        auto kde = test::FakeBusService::start(bus->address(), "org.kde.kglobalaccel");
        ASSERT_TRUE(kde);
        EXPECT_TRUE(chooseKeys(wayland(), bus->address(), DesktopLog{log}));
    }
    SessionFacts noX;
    EXPECT_FALSE(chooseKeys(noX, bus->address(), DesktopLog{log}));
    EXPECT_EQ(log->messages("Keyboard"),
              (std::vector<std::string>{
                  "Media keys unavailable: a Wayland session lets no program grab keys, and this "
                  "desktop offers no global shortcuts to programs; the popover and the command "
                  "line still work",
                  "Media keys through the desktop portal's global shortcuts",
                  "Media keys through KDE's global shortcuts",
                  "Media keys unavailable: no X display"}));
}

// A desktop daemon that grabbed the mute key on the X server before us.
void grabFirst(test::XDesk& desk, const char* keysym) {
    Display* x = desk.display();
    XGrabKey(x, desk.code(keysym), AnyModifier, DefaultRootWindow(x), False, GrabModeAsync,
             GrabModeAsync);
    XSync(x, False);
}

TEST(KeysChoice, KeysTheXServerRefusesComeThroughKdeAlone) {
    auto server = test::VirtualXServer::start();
    auto bus = test::PrivateBus::start();
    if (!server || !bus) GTEST_SKIP() << "Xvfb or dbus-daemon could not be started";
    test::XDesk desk(server->name());
    grabFirst(desk, "XF86AudioMute");
    auto kde = test::FakeBusService::startKGlobalAccel(bus->address());
    ASSERT_TRUE(kde);

    auto log = std::make_shared<sim::MemorySystemLog>();
    SessionFacts x11;
    x11.sessionType = "x11";
    x11.xDisplay = server->name();
    auto taps = chooseKeys(x11, bus->address(), DesktopLog{log});
    ASSERT_TRUE(taps);
    test::LoopThread loop;
    test::TapRecorder recorder;
    auto tap = test::startTap(*taps, recorder, loop.loop());
    ASSERT_TRUE(tap);

    const auto asked = kde->calls("setShortcut");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].arguments.find(R"(["panelwright", "XF86AudioMute")"), 0u);
    EXPECT_EQ(std::dynamic_pointer_cast<MediaKeyTap>(tap)->heldKeys().size(), 5u);
    EXPECT_EQ(log->messages("Keyboard"),
              (std::vector<std::string>{"Media keys through X key grabs",
                                        "Keys another program grabbed on the X server come "
                                        "through KDE's global shortcuts: Mute"}));

    // Both halves deliver to the one callback.
    kde->onBus([](sd_bus* bus) {
        sd_bus_emit_signal(bus, test::FakeBusService::kKGlobalAccelComponent, "org.kde.kglobalaccel.Component",
                           "globalShortcutPressed", "ssx", "panelwright", "XF86AudioMute",
                           std::int64_t{0});
    });
    recorder.waitFor(2);
    desk.tap("XF86MonBrightnessUp");
    EXPECT_EQ(recorder.data1s(4), (std::vector<std::int32_t>{mediaData1(7, true), mediaData1(7, false),
                                                             mediaData1(2, true), mediaData1(2, false)}));

    tap->enable(false);
    EXPECT_EQ(kde->waitForCalls("setInactive", 1).size(), 1u);
    tap.reset();
    EXPECT_EQ(kde->waitForCalls("unregister", 1).size(), 1u);
}

TEST(KeysChoice, WithoutKdeTheRefusedKeyIsNamed) {
    auto server = test::VirtualXServer::start();
    auto bus = test::PrivateBus::start();
    if (!server || !bus) GTEST_SKIP() << "Xvfb or dbus-daemon could not be started";
    test::XDesk desk(server->name());
    grabFirst(desk, "XF86AudioMute");
    auto log = std::make_shared<sim::MemorySystemLog>();
    SessionFacts x11;
    x11.xDisplay = server->name();
    auto taps = chooseKeys(x11, bus->address(), DesktopLog{log});
    ASSERT_TRUE(taps);
    test::LoopThread loop;
    test::TapRecorder recorder;
    auto tap = test::startTap(*taps, recorder, loop.loop());
    ASSERT_TRUE(tap);
    EXPECT_EQ(std::dynamic_pointer_cast<MediaKeyTap>(tap)->heldKeys().size(), 4u);
    EXPECT_EQ(log->messages("Keyboard"),
              (std::vector<std::string>{"Media keys through X key grabs",
                                        "Mute key (XF86AudioMute) is taken by another program; "
                                        "it stays with that program"}));
}

} // namespace
} // namespace pw::linuxdesktop
