#include "platform/linux/desktop/XRandrScreens.h"

#include "DesktopTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>
// Xlib's macros (None, Bool, Status) after the test framework, whose names they would take.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace pw::linuxdesktop {
namespace {

using Rect = platform::Rect;

void expectRect(const Rect& actual, const Rect& expected) {
    EXPECT_EQ(actual.x, expected.x);
    EXPECT_EQ(actual.y, expected.y);
    EXPECT_EQ(actual.width, expected.width);
    EXPECT_EQ(actual.height, expected.height);
}

RandrOutput output(const char* name, unsigned long crtc, int x, int y, unsigned w, unsigned h,
                   bool primary = false) {
    RandrOutput out;
    out.identity.name = name;
    out.crtc = crtc;
    out.x = x;
    out.y = y;
    out.width = w;
    out.height = h;
    out.primary = primary;
    return out;
}

TEST(XRandrScreensArrange, PrimaryFirstAndFlippedAboutItsBottomLeft) {
    // A 1080p laptop panel left of a taller primary monitor, both top-aligned in X.
    const std::vector<RandrOutput> outputs{output("eDP-1", 1, 0, 0, 1920, 1080),
                                           output("DP-1", 2, 1920, 0, 2560, 1440, true),
                                           output("DP-2", 2, 1920, 0, 2560, 1440)}; // mirror
    const auto screens = XRandrScreens::arrange(outputs, {7, std::nullopt, 9}, std::nullopt);
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].localizedName, "DP-1");
    EXPECT_EQ(screens[0].number, 9u); // the mirror's display numbers the shared screen
    expectRect(screens[0].frame, {0, 0, 2560, 1440});
    EXPECT_EQ(screens[1].number, 7u);
    expectRect(screens[1].frame, {-1920, 360, 1920, 1080});
    expectRect(screens[1].visibleFrame(), screens[1].frame);
}

TEST(XRandrScreensArrange, WorkAreaCutToEachScreen) {
    const std::vector<RandrOutput> outputs{output("HDMI-1", 1, 0, 0, 1920, 1080, true),
                                           output("HDMI-2", 2, 1920, 0, 1920, 1080)};
    // A 30-pixel top panel across the desktop, and a work area ending at the first screen.
    auto screens = XRandrScreens::arrange(outputs, {1, 2}, XRandrScreens::WorkArea{0, 30, 3840, 1050});
    expectRect(screens[0].visibleFrame(), {0, 0, 1920, 1050});
    expectRect(screens[1].visibleFrame(), {1920, 0, 1920, 1050});
    screens = XRandrScreens::arrange(outputs, {1, 2}, XRandrScreens::WorkArea{0, 0, 1920, 1040});
    expectRect(screens[0].visibleFrame(), {0, 40, 1920, 1040});
    EXPECT_FALSE(screens[1].visibleFrameOverride);
}

class XRandrScreensTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = test::VirtualXServer::start("1280x1024x24");
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        x = XOpenDisplay(server->name().c_str());
        ASSERT_TRUE(x);
        source.displays = [] { return std::vector<platform::DisplayID>{31}; };
        screens = XRandrScreens::create(server->name(), source, DesktopLog{log});
        ASSERT_TRUE(screens);
    }
    void TearDown() override {
        if (x) XCloseDisplay(x);
    }
    void warp(int px, int py) {
        XWarpPointer(x, 0, DefaultRootWindow(x), 0, 0, 0, 0, px, py);
        XSync(x, False);
    }

    std::optional<test::VirtualXServer> server;
    Display* x = nullptr;
    DisplaySource source;
    std::shared_ptr<sim::MemorySystemLog> log = std::make_shared<sim::MemorySystemLog>();
    std::shared_ptr<XRandrScreens> screens;
};

TEST_F(XRandrScreensTest, ScreenPointerAndWorkAreaOfTheServer) {
    auto all = screens->screens();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].localizedName, "screen");
    EXPECT_EQ(all[0].number, 31u);
    expectRect(all[0].frame, {0, 0, 1280, 1024});
    EXPECT_FALSE(all[0].visibleFrameOverride);
    ASSERT_TRUE(screens->mainScreen());
    EXPECT_EQ(screens->mainScreen()->number, 31u);

    // The top-left and bottom-right pixels are both on the screen.
    warp(0, 0);
    auto pointer = screens->pointerLocation();
    EXPECT_EQ(pointer.x, 0.5);
    EXPECT_EQ(pointer.y, 1023.5);
    EXPECT_TRUE(all[0].frame.contains(pointer));
    warp(1279, 1023);
    pointer = screens->pointerLocation();
    EXPECT_EQ(pointer.x, 1279.5);
    EXPECT_EQ(pointer.y, 0.5);
    EXPECT_TRUE(all[0].frame.contains(pointer));

    // A window manager's 24-pixel top panel, on the second of two desktops.
    const long areas[8] = {0, 0, 1280, 1024, 0, 24, 1280, 1000};
    const long current = 1;
    XChangeProperty(x, DefaultRootWindow(x), XInternAtom(x, "_NET_WORKAREA", False), XA_CARDINAL,
                    32, PropModeReplace, reinterpret_cast<const unsigned char*>(areas), 8);
    XChangeProperty(x, DefaultRootWindow(x), XInternAtom(x, "_NET_CURRENT_DESKTOP", False),
                    XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&current), 1);
    XSync(x, False);
    all = screens->screens();
    ASSERT_TRUE(all[0].visibleFrameOverride);
    expectRect(all[0].visibleFrame(), {0, 0, 1280, 1000});
}

TEST_F(XRandrScreensTest, ScreenWithoutAKnownDisplayHasNoNumber) {
    source.displays = [] { return std::vector<platform::DisplayID>{31, 32}; };
    screens = XRandrScreens::create(server->name(), source, DesktopLog{log});
    ASSERT_TRUE(screens);
    const auto all = screens->screens();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_FALSE(all[0].number);
}

TEST(XRandrScreensStart, NoServerIsOneLine) {
    auto log = std::make_shared<sim::MemorySystemLog>();
    EXPECT_FALSE(XRandrScreens::create(":4093", DisplaySource{}, DesktopLog{log}));
    EXPECT_EQ(log->messages("Display").size(), 1u);
}

} // namespace
} // namespace pw::linuxdesktop
