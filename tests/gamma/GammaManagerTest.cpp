#include "gamma/GammaManager.h"

#include "common/TestSupport.h"
#include "platform/sim/SimGamma.h"
#include "platform/sim/SimMachine.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace pw::test {
namespace {

using sim::SimGammaTables;
using Kind = SimGammaTables::Call::Kind;
using platform::LogLevel;

sim::Scenario twoMonitors() {
    sim::Scenario scenario;
    for (platform::DisplayID id : {2u, 3u}) {
        sim::DisplaySpec d;
        d.id = id;
        d.name = "Monitor " + std::to_string(id);
        scenario.displays.push_back(d);
    }
    return scenario;
}

// A calibration that is neither linear nor the same on every channel, so a table built
// from the wrong source or channel shows.
SimGammaTables::Table calibration(std::size_t samples) {
    SimGammaTables::Table t;
    for (std::size_t i = 0; i < samples; ++i) {
        const float x = static_cast<float>(i) / static_cast<float>(samples);
        t.red.push_back(0.05f + 0.9f * x * x);
        t.green.push_back(0.9f * x);
        t.blue.push_back(0.1f + 0.8f * std::sqrt(x));
    }
    return t;
}

class GammaManagerTest : public ::testing::Test {
protected:
    SimGammaTables& tables() { return machine.gamma(); }
    bool logged(LogLevel level, std::string_view message) const {
        return machine.systemLog().contains("Display", level, message);
    }

    sim::SimMachine machine{twoMonitors()};
    ScopedPlatform scoped{machine.platform()};
    GammaManager gamma{machine.platform().gamma};
};

TEST_F(GammaManagerTest, DimsFromTheCapturedTableWithoutCompoundingAndClampsFactors) {
    const auto calibrated = calibration(256);
    tables().setCalibrated(2, calibrated);

    gamma.setBrightness(2, 0.5);
    gamma.setBrightness(2, 0.5);
    EXPECT_EQ(tables().installed(2), SimGammaTables::scaled(calibrated, 0.5f));
    gamma.setBrightness(2, 0.25);
    EXPECT_EQ(tables().installed(2), SimGammaTables::scaled(calibrated, 0.25f));
    EXPECT_EQ(tables().count(Kind::read, 2), 1u) << "captured once, at the first dimming";
    EXPECT_TRUE(logged(LogLevel::info, "Captured gamma table for display 2 (256 samples)"));
    EXPECT_TRUE(tables().showsCalibrated(3)) << "a display never dimmed is left alone";
    EXPECT_EQ(tables().count(Kind::read, 3), 0u);

    const auto black = SimGammaTables::scaled(calibrated, 0.0f);
    for (double factor : {0.0, -0.3, -std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()}) {
        gamma.setBrightness(2, 0.7);
        gamma.setBrightness(2, factor);
        EXPECT_EQ(tables().installed(2), black) << "factor " << factor;
        EXPECT_EQ(gamma.currentBrightness().at(2), 0.0) << "factor " << factor;
    }

    tables().clearCalls();
    gamma.setBrightness(2, 1.7);
    EXPECT_EQ(gamma.currentBrightness().at(2), 1.0);
    EXPECT_EQ(tables().count(Kind::restore), 1u);
    EXPECT_EQ(tables().count(Kind::apply), 0u) << "full brightness writes no table of its own";
    EXPECT_TRUE(tables().showsCalibrated(2));
}

TEST_F(GammaManagerTest, FullBrightnessKeepsOtherDisplaysDimmedAndRestoreAllReturnsEveryDisplay) {
    gamma.setBrightness(2, 0.4);
    gamma.setBrightness(3, 0.6);
    ASSERT_FALSE(tables().showsCalibrated(3));

    // The system restores all displays at once; the other display gets its level back.
    const auto identityAt = [](float f) {
        return SimGammaTables::scaled(SimGammaTables::identity(), f);
    };
    gamma.setBrightness(2, 1.0);
    EXPECT_TRUE(tables().showsCalibrated(2));
    EXPECT_EQ(tables().installed(3), identityAt(0.6f));
    EXPECT_EQ(gamma.currentBrightness(),
              (std::map<platform::DisplayID, double>{{2, 1.0}, {3, 0.6}}));
    // Staying at full brightness (a slider above the dimming range) touches nothing.
    tables().clearCalls();
    gamma.setBrightness(2, 1.0);
    gamma.setBrightness(2, 3.0);
    EXPECT_TRUE(tables().calls().empty());
    gamma.setBrightness(2, 0.2);
    gamma.setBrightness(2, 1.0);
    EXPECT_EQ(tables().installed(3), identityAt(0.6f));
    EXPECT_TRUE(tables().showsCalibrated(2));

    gamma.setBrightness(3, 0.6);
    gamma.restoreAll();
    EXPECT_TRUE(gamma.currentBrightness().empty());
    EXPECT_TRUE(tables().showsCalibrated(3));
    EXPECT_EQ(gamma.defaultTables().size(), 2u);

    // Dimming again reuses the table captured before.
    tables().clearCalls();
    gamma.setBrightness(3, 0.5);
    EXPECT_EQ(tables().count(Kind::read), 0u);
    EXPECT_EQ(tables().installed(3), identityAt(0.5f));
}

TEST_F(GammaManagerTest, AFailedCaptureIsLoggedChangesNothingAndIsRetriedNextTime) {
    tables().failNextReads(2, 1);
    gamma.setBrightness(2, 0.5);
    EXPECT_TRUE(logged(LogLevel::error, "Failed to capture gamma table for display 2"));
    EXPECT_TRUE(logged(LogLevel::error, "No gamma table for display 2"));
    EXPECT_FALSE(gamma.currentBrightness().contains(2));
    EXPECT_FALSE(gamma.defaultTables().contains(2));
    EXPECT_EQ(tables().count(Kind::apply), 0u);

    gamma.setBrightness(2, 0.5);
    EXPECT_EQ(tables().count(Kind::read, 2), 2u);
    EXPECT_EQ(gamma.currentBrightness().at(2), 0.5);
    EXPECT_EQ(tables().installed(2),
              SimGammaTables::scaled(SimGammaTables::identity(), 0.5f));

    // A display that is not there: no table, so not even full brightness touches the system.
    tables().clearCalls();
    gamma.setBrightness(99, 1.0);
    EXPECT_TRUE(logged(LogLevel::error, "Failed to capture gamma table for display 99"));
    EXPECT_TRUE(logged(LogLevel::error, "No gamma table for display 99"));
    EXPECT_EQ(tables().count(Kind::restore), 0u);
    EXPECT_FALSE(gamma.currentBrightness().contains(99));
}

TEST_F(GammaManagerTest, AnEmptyRampIsNotCapturedAndALongOneIsKeptWhole) {
    // An empty ramp could never be given back: the display counts as not dimmable.
    tables().setCalibrated(2, SimGammaTables::Table{});
    gamma.setBrightness(2, 0.5);
    EXPECT_TRUE(logged(LogLevel::error, "Failed to capture gamma table for display 2"));
    EXPECT_FALSE(gamma.canDim(2));
    EXPECT_EQ(tables().count(Kind::apply, 2), 0u);
    EXPECT_TRUE(tables().showsCalibrated(2));

    // Longer than the 256 samples of most displays: every sample is kept and scaled.
    const auto large = calibration(1024);
    tables().setCalibrated(3, large);
    gamma.setBrightness(3, 0.5);
    EXPECT_TRUE(logged(LogLevel::info, "Captured gamma table for display 3 (1024 samples)"));
    EXPECT_EQ(tables().installed(3), SimGammaTables::scaled(large, 0.5f));
}

TEST(GammaManagerWithoutFacility, EveryCaptureFailsWithALineAndNothingBreaks) {
    sim::SimMachine machine{twoMonitors()};
    auto platform = machine.platform();
    platform.gamma = nullptr;
    ScopedPlatform scoped{platform};

    GammaManager gamma{nullptr};
    gamma.setBrightness(2, 0.5);
    gamma.setBrightness(2, 1.0);
    gamma.restoreAll();
    const auto lines = machine.systemLog().messages("Display");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0],
              "Failed to capture gamma table for display 2: this machine offers no gamma tables");
    EXPECT_EQ(lines[1], "No gamma table for display 2");
    EXPECT_TRUE(gamma.currentBrightness().empty());
}

} // namespace
} // namespace pw::test
