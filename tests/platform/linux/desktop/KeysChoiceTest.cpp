#include "platform/linux/desktop/KeysChoice.h"

#include "DesktopTestSupport.h"
#include "FakeBusService.h"
#include "KeyTapTestSupport.h"
#include "platform/linux/desktop/MediaKeyEvents.h"

#include <X11/Xlib.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

namespace pw::linuxdesktop {
namespace {


// A compositor started from a text console (sway from a tty) leaves the session type at
// "tty"; its WAYLAND_DISPLAY says what it is.
SessionFacts wayland(const char* type = "wayland") {
    SessionFacts facts;
    facts.sessionType = type;
    facts.hasWaylandDisplay = true;
    facts.xDisplay = ":0"; // its X server (Xwayland) cannot grab keys for us: never used
    return facts;
}

TEST(KeysChoice, WaylandTakesKdeFirstThenThePortalElseSaysWhy) {
    auto bus = test::PrivateBus::start();
    if (!bus) GTEST_SKIP() << "dbus-daemon could not be started";
    auto log = std::make_shared<sim::MemorySystemLog>();

    for (const char* type : {"wayland", "tty"})
        EXPECT_FALSE(chooseKeys(wayland(type), bus->address(), DesktopLog{log})) << type;
    {
        auto portal =
            test::FakeBusService::start(bus->address(), "org.freedesktop.portal.Desktop",
                                        {{"Get", [](sd_bus*, sd_bus_message* call) {
                                              sd_bus_reply_method_return(call, "v", "u", 1u);
                                          }}});
        ASSERT_TRUE(portal);
        EXPECT_TRUE(chooseKeys(wayland(), bus->address(), DesktopLog{log}));
        auto kde = test::FakeBusService::start(bus->address(), "org.kde.kglobalaccel");
        ASSERT_TRUE(kde);
        EXPECT_TRUE(chooseKeys(wayland(), bus->address(), DesktopLog{log}));
    }
    SessionFacts noX;
    EXPECT_FALSE(chooseKeys(noX, bus->address(), DesktopLog{log}));
    EXPECT_EQ(
        log->messages("Keyboard"),
        (std::vector<std::string>{
            "Media keys unavailable: a Wayland session lets no program grab keys, and this "
            "desktop offers no global shortcuts to programs; the popover and the command "
            "line still work",
            "Media keys unavailable: a Wayland session lets no program grab keys, and this "
            "desktop offers no global shortcuts to programs; the popover and the command "
            "line still work",
            "Media keys through the desktop portal's global shortcuts",
            "Media keys through KDE's global shortcuts", "Media keys unavailable: no X display"}));
}

// An X11 session on Xvfb where a desktop daemon grabbed the mute key before us.
class KeysChoiceOnX : public test::KeyTapOnBus {
protected:
    void SetUp() override {
        KeyTapOnBus::SetUp();
        server = test::VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        desk.emplace(server->name());
        Display* x = desk->display();
        XGrabKey(x, desk->code("XF86AudioMute"), AnyModifier, DefaultRootWindow(x), False,
                 GrabModeAsync, GrabModeAsync);
        XSync(x, False);
    }
    void TearDown() override { keys.reset(); }

    void startChosen() {
        SessionFacts x11;
        x11.sessionType = "x11";
        x11.xDisplay = server->name();
        keys = chooseKeys(x11, bus->address(), DesktopLog{log});
        ASSERT_TRUE(keys);
        ASSERT_TRUE(test::startKeys(*keys, recorder));
    }
    std::size_t held() const {
        return std::dynamic_pointer_cast<KeyHoldingSource>(keys)->heldKeys().size();
    }

    std::optional<test::VirtualXServer> server;
    std::optional<test::XDesk> desk;
    std::shared_ptr<platform::MediaKeys> keys;
};

TEST_F(KeysChoiceOnX, KeysTheXServerRefusesComeThroughKdeAlone) {
    auto kde = test::FakeBusService::startKGlobalAccel(bus->address());
    ASSERT_TRUE(kde);
    ASSERT_NO_FATAL_FAILURE(startChosen());

    const auto asked = kde->calls("setShortcut");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].arguments.find(R"(["panelwright", "XF86AudioMute")"), 0u);
    EXPECT_EQ(held(), 5u);
    EXPECT_EQ(log->messages("Keyboard"),
              (std::vector<std::string>{"Media keys through X key grabs",
                                        "Keys another program grabbed on the X server come "
                                        "through KDE's global shortcuts: Mute"}));

    // Both halves hand their keys to the one program.
    kde->onBus([](sd_bus* bus) {
        sd_bus_emit_signal(bus, test::FakeBusService::kKGlobalAccelComponent,
                           "org.kde.kglobalaccel.Component", "globalShortcutPressed", "ssx",
                           "panelwright", "XF86AudioMute", std::int64_t{0});
    });
    recorder.waitFor(2);
    desk->tap("XF86MonBrightnessUp");
    using test::keyEvent;
    EXPECT_EQ(recorder.keysOnly(4),
              (std::vector<platform::MediaKeyEvent>{
                  keyEvent(MediaKey::mute, true), keyEvent(MediaKey::mute, false),
                  keyEvent(MediaKey::brightnessUp, true), keyEvent(MediaKey::brightnessUp, false)}));

    keys->want({{}, platform::KeyPressMode::keyDownAndUp, true});
    EXPECT_EQ(kde->waitForCalls("setInactive", 1).size(), 1u);
    keys.reset();
    EXPECT_EQ(kde->waitForCalls("unregister", 1).size(), 1u);
}

TEST_F(KeysChoiceOnX, WithoutKdeTheRefusedKeyIsNamed) {
    ASSERT_NO_FATAL_FAILURE(startChosen());
    EXPECT_EQ(held(), 4u);
    EXPECT_EQ(log->messages("Keyboard"),
              (std::vector<std::string>{"Media keys through X key grabs",
                                        "Mute key (XF86AudioMute) is taken by another program; "
                                        "it stays with that program"}));
}

} // namespace
} // namespace pw::linuxdesktop
