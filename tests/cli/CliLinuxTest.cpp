// The command line on a Linux machine: the real backend (sysfs reader, open/ioctl/read/
// write) against a fake root, with the fake i2c-dev driver preloaded into the process.

#include "../platform/linux/FakeRoot.h"
#include "CliRunner.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace pw {
namespace {

using test::Outcome;

class CliOnLinux : public ::testing::Test {
protected:
    test::TempDir home;
    test::FakeRoot fake;
    std::vector<std::uint8_t> edid = test::edidOf(0x10AC, 0xA0C4, 7, "DELL U2720Q");
    std::filesystem::path card;

    // An Intel desktop with one HDMI monitor on i2c-5, a ddc link to it, and the laptop's
    // panel when `panel` is set.
    void machine(const std::string& settings, bool external = true, bool panel = false) {
        const auto gpu = fake.pciDevice("0000:00:02.0", "0x030000");
        fake.adapter(gpu, 5, "i915 gmbus dpb");
        card = fake.card(gpu, 0);
        if (external) fake.connector(card, "card0-HDMI-A-1", "connected", edid, 95, 5);
        if (panel) fake.connector(card, "card0-eDP-1", "connected", edid, 77);
        if (!settings.empty()) fake.device(5, settings);
    }

    Outcome run(const std::vector<std::string>& args) {
        return test::runCli(home.path(), args,
                            {{"PANELWRIGHT_ROOT", fake.root().string()},
                             {"LD_PRELOAD", PW_FAKE_I2C_PATH},
                             {"ASAN_OPTIONS", "verify_asan_link_order=0"},
                             {"PANELWRIGHT_FORCE_I2C_ADDRESS", "0"}});
    }
};

TEST_F(CliOnLinux, DetectGetAndSetDriveTheMonitorOnItsBus) {
    machine("feature 10 30 100\n");
    auto r = run({"detect"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Display 95: DELL U2720Q"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("bus /dev/i2c-5"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("brightness 30 of 100"), std::string::npos) << r.out;

    r = run({"--trace", "setvcp", "brightness", "80"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Brightness set to 80"), std::string::npos) << r.out;
    // The trace names the bus of each transfer; the Set VCP frame goes to 0x37.
    EXPECT_NE(r.err.find("write /dev/i2c-5 addr 0x37"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("read  /dev/i2c-5 addr 0x37"), std::string::npos) << r.err;

    // The fake driver lives in one process: a fresh run reads the monitor's own value.
    r = run({"--display", "95", "getvcp", "brightness"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Brightness (0x10): 30 of 100"), std::string::npos) << r.out;
}

TEST_F(CliOnLinux, UnreachableMachinesExitThreeAndSayWhy) {
    struct Case {
        std::string settings;
        bool external, panel, devices;
        std::vector<std::string> args;
        int status;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"", false, true, true, {"detect"}, 3, "only a built-in panel is connected (card0-eDP-1)"},
        {"", true, false, false, {"getvcp", "brightness"}, 3,
         "/dev/i2c-5 does not exist: the i2c-dev kernel module is not loaded"},
        {"refuse_rdwr\nslave_busy\n", true, false, true, {"getvcp", "brightness"}, 3,
         "/dev/i2c-5: address 0x37 is claimed by a kernel driver (ddcci)"},
        {"no_monitor\n", true, false, true, {"getvcp", "brightness"}, 1,
         "/dev/i2c-5: no answer at address 0x37"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        std::filesystem::remove_all(fake.root());
        std::filesystem::create_directories(fake.root());
        machine(c.devices ? c.settings : "", c.external, c.panel);
        const auto r = run(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    }

    // The user's permission to share the address gets past the kernel driver.
    std::filesystem::remove_all(fake.root());
    std::filesystem::create_directories(fake.root());
    machine("refuse_rdwr\nslave_busy\nfeature 10 44 100\n");
    const auto r = run({"--force-i2c-address", "getvcp", "brightness"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("44 of 100"), std::string::npos) << r.out;
}

TEST_F(CliOnLinux, DetectListsConnectedMonitorsItCannotReachWithTheReason) {
    const auto benq = test::edidOf(0x09D1, 0x7F41, 2002, "BenQ PD2700U");
    struct Case {
        bool reachableToo; // the HDMI monitor on i2c-5 answers as well
        std::vector<std::string> args;
        int status;
        std::string says;
    };
    const std::vector<Case> cases = {
        {false, {"detect"}, 3,
         "Not reachable: card0-DP-1 (BenQ PD2700U): the driver links no DDC channel and no "
         "display adapter answers at 0x50 with its EDID\n"},
        {true, {"detect"}, 0, "Not reachable: card0-DP-2: its DDC link, i2c-0 (SMBus I801"},
        {true, {"detect", "--json"}, 0, "\"reachable\": false,\n    \"connector\": \"card0-DP-1\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        std::filesystem::remove_all(fake.root());
        std::filesystem::create_directories(fake.root());
        machine("feature 10 30 100\n", c.reachableToo);
        // A DisplayPort monitor with neither link nor AUX, whose EDID no adapter answers
        // with, and one whose only link is the chipset's bus.
        fake.connector(card, "card0-DP-1", "connected", benq, 96);
        const auto chipset = fake.pciDevice("0000:00:1f.4", "0x0c0500");
        fake.adapter(chipset, 0, "SMBus I801 adapter at efa0");
        fake.device(0, "no_monitor\n");
        const auto dp2 = fake.connector(card, "card0-DP-2", "connected", {}, 97);
        std::filesystem::create_directory_symlink(chipset / "i2c-0", dp2 / "ddc");
        const auto r = run(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.out.find(c.says), std::string::npos) << r.out;
        if (c.reachableToo) EXPECT_NE(r.out.find("DELL U2720Q"), std::string::npos) << r.out;
    }
}

TEST_F(CliOnLinux, AMachineWithoutDrmPointsToTheSimulator) {
    const auto r = run({"detect"});
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("no DRM display device"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("--simulate"), std::string::npos) << r.err;
}

} // namespace
} // namespace pw
