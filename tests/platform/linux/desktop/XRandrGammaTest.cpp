#include "platform/linux/desktop/XRandrGamma.h"

#include "platform/linux/desktop/GammaChoice.h"

#include "DesktopTestSupport.h"
#include "platform/sim/MemorySystemLog.h"

#include <gtest/gtest.h>
// Xlib's macros (None, Bool, Status) after the test framework, whose names they would take.
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <cmath>

namespace pw::linuxdesktop {
namespace {

constexpr platform::DisplayID kDisplay = 42;

class XRandrGammaTest : public ::testing::Test {
protected:
    void SetUp() override {
        server = test::VirtualXServer::start();
        if (!server) GTEST_SKIP() << "Xvfb could not be started";
        probe.emplace(server->name());
        // The virtual server starts with an all-zero ramp: give it a known one.
        probe->install([](double v) { return v; });
        log = std::make_shared<sim::MemorySystemLog>();
        tables = XRandrGammaTables::create(server->name(), oneDisplay(), DesktopLog{log});
        ASSERT_TRUE(tables);
    }

    static DisplaySource oneDisplay() {
        return DisplaySource{[] { return std::vector<platform::DisplayID>{kDisplay}; },
                             [](platform::DisplayID) { return std::nullopt; }, nullptr};
    }

    std::optional<test::VirtualXServer> server;
    std::optional<test::RampProbe> probe;
    std::shared_ptr<sim::MemorySystemLog> log;
    std::shared_ptr<XRandrGammaTables> tables;
};

TEST_F(XRandrGammaTest, DimReadBackAndRestore) {
    ASSERT_EQ(probe->size(), 256);
    const auto ramp = tables->read(kDisplay);
    ASSERT_TRUE(ramp);
    ASSERT_EQ(ramp->size(), 256u);
    const auto& r = ramp->red;
    EXPECT_FLOAT_EQ(r[0], 0.0f);
    EXPECT_NEAR(r[128], 128.0f / 255, 1e-4);
    EXPECT_FLOAT_EQ(ramp->blue[255], 1.0f);

    // Half of the captured ramp, twice: the server shows half, not a quarter.
    std::vector<float> half(256);
    for (int i = 0; i < 256; ++i)
        half[i] = r[i] * 0.5f;
    for (int step = 0; step < 2; ++step)
        ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{half, half, half}));
    auto shown = probe->red();
    EXPECT_NEAR(shown[255], 32768, 1);
    EXPECT_NEAR(shown[100], 65535 * 100 / 255 / 2, 2);
    EXPECT_TRUE(tables->holdsOriginal(kDisplay));

    // Restoring gives back what the server had before the first change, once.
    tables->restoreAll();
    shown = probe->red();
    EXPECT_EQ(shown[255], 65535);
    EXPECT_NEAR(shown[100], 65535 * 100 / 255, 1);
    EXPECT_FALSE(tables->holdsOriginal(kDisplay));

    // What the desktop installs meanwhile becomes the new calibrated ramp.
    probe->install([](double v) { return v * v; });
    ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{half, half, half}));
    tables->restoreAll();
    EXPECT_NEAR(probe->red()[128], std::lround(65535.0 * (128.0 / 255) * (128.0 / 255)), 1);
}

TEST_F(XRandrGammaTest, RampsOfOtherLengthsKeepTheirWholeCurve) {
    // A short table is stretched over the server's length; samples out of range are clamped.
    std::vector<float> shortRamp{-0.5f, 0.25f, 2.0f};
    ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{shortRamp, shortRamp, shortRamp}));
    const auto shown = probe->red();
    EXPECT_EQ(shown[0], 0);
    EXPECT_EQ(shown[255], 65535);
    EXPECT_NEAR(shown[127], 65535 / 4, 400); // the middle of the three samples
}

TEST_F(XRandrGammaTest, UnknownDisplaysAndEmptyTablesChangeNothing) {
    const std::vector<float> r(256, 0.5f);
    EXPECT_FALSE(tables->read(7));
    EXPECT_FALSE(tables->apply(7, platform::GammaRamp{r, r, r}));
    EXPECT_FALSE(tables->apply(kDisplay, platform::GammaRamp{}));
    EXPECT_FALSE(tables->apply(kDisplay, platform::GammaRamp{r, r, {0.5f}})) << "uneven";
    EXPECT_EQ(probe->red()[255], 65535);
    EXPECT_FALSE(tables->holdsOriginal(kDisplay));
}

TEST_F(XRandrGammaTest, GoingAwayGivesTheRampBack) {
    std::vector<float> black(256, 0.0f);
    ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{black, black, black}));
    EXPECT_EQ(probe->red()[255], 0);
    tables.reset();
    EXPECT_EQ(probe->red()[255], 65535);
}

TEST_F(XRandrGammaTest, ServerGoingAwayIsAnErrorNotTheEndOfTheProgram) {
    std::vector<float> half(256, 0.5f);
    ASSERT_TRUE(tables->apply(kDisplay, platform::GammaRamp{half, half, half}));
    probe.reset();
    server.reset(); // the session ends under us
    EXPECT_FALSE(tables->read(kDisplay));
    EXPECT_FALSE(tables->apply(kDisplay, platform::GammaRamp{half, half, half}));
    tables->restoreAll();
    tables.reset();
}

TEST(XRandrGammaStart, NoServerIsOneLineAndNoTables) {
    auto log = std::make_shared<sim::MemorySystemLog>();
    EXPECT_FALSE(XRandrGammaTables::create(":4093", DisplaySource{}, DesktopLog{log}));
    const auto lines = log->messages("Display");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "Dimming through X gamma ramps unavailable: no X server at \":4093\"");
}

TEST_F(XRandrGammaTest, TheSessionDecidesOnceWhetherAndHowToDim) {
    // No GNOME here: its display configuration is looked for on a bus that is not there.
    const std::optional<std::string> noBus = "unix:path=/nonexistent/bus";
    SessionFacts x11{"x11", false, server->name()};
    log->clear();
    EXPECT_TRUE(chooseGamma(x11, noBus, oneDisplay(), DesktopLog{log}));
    // A Wayland session's X server (Xwayland) is not asked, even though one answers: also
    // where a compositor started from a text console leaves the session type at "tty".
    for (const char* type : {"", "tty"})
        EXPECT_FALSE(chooseGamma(SessionFacts{type, true, server->name()}, noBus, oneDisplay(),
                                 DesktopLog{log}))
            << type;
    EXPECT_FALSE(chooseGamma(SessionFacts{"tty", false, std::nullopt}, noBus, oneDisplay(),
                             DesktopLog{log}));
    auto lines = log->messages("Display");
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("Dimming through GNOME's display configuration unavailable");
    });
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "Dimming through the X server's gamma ramps",
                  "Dimming unavailable: this Wayland session gives programs no gamma tables; "
                  "brightness stays within each monitor's own range",
                  "Dimming unavailable: this Wayland session gives programs no gamma tables; "
                  "brightness stays within each monitor's own range",
                  "Dimming unavailable: no X server in this session"}));
}

} // namespace
} // namespace pw::linuxdesktop
