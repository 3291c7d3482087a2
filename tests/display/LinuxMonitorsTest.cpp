// Finding monitors on a simulated Linux machine: which connectors count, which adapter
// carries each one's DDC/CI, what is never opened, the errors a Linux user meets, and
// hot-plug through udev.

#include "DisplayTestBed.h"

#include "platform/drm/LinuxMonitors.h"
#include "platform/sim/SimLinux.h"
#include "platform/drm/I2CDevTransport.h"

#include <algorithm>

namespace pw::test {
namespace {

sim::Scenario linuxScenario(const std::string& json) {
    auto parsed = sim::parseScenario(json, "test.json");
    if (auto* error = std::get_if<sim::ScenarioError>(&parsed)) {
        ADD_FAILURE() << error->message();
        return {};
    }
    return std::get<sim::Scenario>(std::move(parsed));
}

const I2CDevTransport& busOf(const ExternalDisplay& display) {
    return dynamic_cast<const I2CDevTransport&>(*display.transport);
}

class LinuxMonitorsTest : public DisplayTestBed {
protected:
    std::vector<int> opened() const { return machine->i2cDevices()->opened(); }
    bool everOpened(int bus) const {
        const auto list = opened();
        return std::find(list.begin(), list.end(), bus) != list.end();
    }
};

// A laptop on a dock: its panel, two monitors of one model (serials differ) on adapters
// without links, listed in the opposite order to their adapters, a disconnected port and
// the chipset's SMBus, which must never be touched.
constexpr const char* kDockedLaptop = R"({
  "flavor": "linux",
  "linux": {"adapters": [{"number": 0, "name": "SMBus I801 adapter at efa0", "pciClass": "0x0c0500"},
                         {"number": 3, "name": "Synopsys DesignWare I2C adapter", "pciClass": "0x030000"}]},
  "displays": [
    {"id": 70, "builtin": true, "vendor": 3300, "model": 1638, "name": "Panel"},
    {"id": 81, "vendor": 4268, "model": 41200, "serial": 111, "name": "DELL P2422H",
     "linux": {"connector": "card0-DP-3", "link": "none", "adapter": 12}, "monitor": {"features": {"brightness": [11, 100]}}},
    {"id": 82, "vendor": 4268, "model": 41200, "serial": 222, "name": "DELL P2422H",
     "linux": {"connector": "card0-DP-4", "link": "none", "adapter": 11}, "monitor": {"features": {"brightness": [22, 100]}}},
    {"id": 83, "vendor": 4268, "model": 41200, "serial": 333, "name": "DELL P2422H",
     "linux": {"connector": "card0-DP-5", "status": "disconnected", "link": "none", "adapter": 13}, "monitor": {}}
  ]
})";

TEST_F(LinuxMonitorsTest, DockedTwinsArePairedByEdidAndNothingElseIsOpened) {
    boot(linuxScenario(kDockedLaptop));
    const auto displays = enumerate();

    ASSERT_EQ(displays.size(), 2u);
    EXPECT_EQ(displays[0].id, 81u);
    EXPECT_EQ(busOf(displays[0]).bus(), 12); // its own EDID, not the first adapter free
    ASSERT_TRUE(displays[0].brightness);
    EXPECT_EQ(displays[0].brightness->current, 11);
    EXPECT_EQ(displays[1].id, 82u);
    EXPECT_EQ(busOf(displays[1]).bus(), 11);
    EXPECT_EQ(displays[1].brightness->current, 22);
    EXPECT_EQ(displays[0].name, "DELL P2422H");

    EXPECT_FALSE(everOpened(0)); // SMBus: not a display device
    EXPECT_FALSE(everOpened(3)); // a display device's, but on the never-probe list
    EXPECT_FALSE(everOpened(13)); // the disconnected monitor's adapter is nobody's
    // Only 0x37 is ever written with a frame; at 0x50 only the offset goes out.
    for (const auto& t : machine->bus().transfers()) {
        if (t.kind == sim::BusTransfer::Kind::write && t.chipAddress == 0x50)
            EXPECT_EQ(t.bytes, (std::vector<std::uint8_t>{0x00}));
        EXPECT_TRUE(t.chipAddress == 0x37 || t.chipAddress == 0x50) << t.chipAddress;
    }
}

TEST_F(LinuxMonitorsTest, LinkedAdaptersAreUsedWithoutProbing) {
    boot(linuxScenario(R"({
      "flavor": "linux",
      "displays": [
        {"id": 90, "vendor": 4268, "model": 1, "name": "HDMI one", "linux": {"link": "ddc", "adapter": 4}, "monitor": {}},
        {"id": 91, "vendor": 4268, "model": 2, "name": "DP one", "linux": {"link": "aux", "adapter": 8, "pciClass": "0x0a0000"}, "monitor": {}},
        {"id": 92, "vendor": 4268, "model": 3, "name": "Mute", "linux": {"link": "ddc", "adapter": 6}}
      ]})"));
    const auto displays = enumerate();
    ASSERT_EQ(displays.size(), 3u);
    // The system's order is the connectors' names: card0-DP-1, card0-HDMI-A-1, card0-HDMI-A-2.
    EXPECT_EQ(displays[0].id, 91u);
    EXPECT_EQ(busOf(displays[0]).bus(), 8);
    EXPECT_EQ(displays[1].id, 90u);
    EXPECT_EQ(busOf(displays[1]).bus(), 4);
    // A linked adapter without DDC/CI still carries the display, unverified.
    EXPECT_EQ(displays[2].ddcStatus, DDCStatus::unverified);
    EXPECT_NE(busOf(displays[2]).problem().find("/dev/i2c-6: no answer at address 0x37"),
              std::string::npos);
    for (const auto& t : machine->bus().transfers())
        EXPECT_EQ(t.chipAddress, 0x37u) << "no EDID probe when the driver names the bus";
}

TEST_F(LinuxMonitorsTest, TheBytesOnTheDeviceAreDdcCiFrames) {
    boot(linuxScenario(R"({"flavor": "linux", "displays": [
        {"id": 5, "vendor": 1, "model": 1, "linux": {"adapter": 4}, "monitor": {"features": {"brightness": [100, 100]}}}]})"));
    const auto displays = enumerate();
    ASSERT_EQ(displays.size(), 1u);
    const auto transfers = machine->bus().transfers();
    ASSERT_GE(transfers.size(), 2u);
    EXPECT_EQ(transfers[0].endpoint, "/dev/i2c-4");
    EXPECT_EQ(transfers[0].kind, sim::BusTransfer::Kind::write);
    EXPECT_EQ(transfers[0].dataAddress, 0x51u);
    EXPECT_EQ(transfers[0].bytes, (std::vector<std::uint8_t>{0x82, 0x01, 0x10, 0xAC}));
    EXPECT_EQ(transfers[1].kind, sim::BusTransfer::Kind::read);
    EXPECT_EQ(transfers[1].bytes.size(), 11u);
    EXPECT_EQ(transfers[1].bytes[0], 0x6E);
    // The reply is read after the monitor's time to prepare it.
    EXPECT_GE(transfers[1].start - transfers[0].end, I2CDevTransport::kReplyWait);
    EXPECT_EQ(machine->bus().overlapCount(), 0u);
}

struct ErrorCase {
    const char* scenario;
    const char* expected; // in the transport's problem or the no-display reason
    bool listed;          // the display is still listed (its channel exists)
};

TEST_F(LinuxMonitorsTest, EachLinuxErrorSaysWhatToDo) {
    const ErrorCase cases[] = {
        {R"({"flavor": "linux", "displays": [{"vendor": 1, "model": 1, "linux": {"adapter": 4, "openError": "EACCES"}, "monitor": {}}]})",
         "/dev/i2c-4: permission denied: the udev rule 60-panelwright-i2c.rules is not installed", true},
        {R"({"flavor": "linux", "displays": [{"vendor": 1, "model": 1, "linux": {"adapter": 4, "refusesRdwr": true, "slaveError": "EBUSY"}, "monitor": {}}]})",
         "/dev/i2c-4: address 0x37 is claimed by a kernel driver (ddcci)", true},
        {R"({"flavor": "linux", "displays": [{"vendor": 1, "model": 1, "linux": {"adapter": 4, "lockHeld": true}, "monitor": {}}]})",
         "/dev/i2c-4 is in use by another DDC/CI program", true},
        {R"({"flavor": "linux", "linux": {"i2cDev": false}, "displays": [{"vendor": 1, "model": 1, "linux": {"adapter": 4}, "monitor": {}}]})",
         "/dev/i2c-4 does not exist: the i2c-dev kernel module is not loaded", true},
        {R"({"flavor": "linux", "displays": [{"builtin": true, "vendor": 1, "model": 1}]})",
         "only a built-in panel is connected (card0-eDP-1)", false},
        {R"({"flavor": "linux", "linux": {"drm": false}, "displays": []})",
         "no DRM display device under /sys/class/drm", false},
        {R"({"flavor": "linux", "linux": {"i2cDev": false}, "displays": [{"vendor": 1, "model": 1, "linux": {"link": "none"}, "monitor": {}}]})",
         "no /dev/i2c-* devices: the i2c-dev kernel module is not loaded", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        boot(linuxScenario(c.scenario));
        const auto displays = enumerate();
        ASSERT_EQ(displays.size(), c.listed ? 1u : 0u);
        const auto text = c.listed ? busOf(displays[0]).problem()
                                   : machine->platform().monitors->whyNoneFound();
        EXPECT_NE(text.find(c.expected), std::string::npos) << text;
        if (c.listed) {
            EXPECT_TRUE(busOf(displays[0]).unreachable());
            EXPECT_EQ(displays[0].ddcStatus, DDCStatus::unverified);
            // Each layer logs its own failure, once per problem, not once per retry.
            const auto lines = logLines("I2C");
            EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                    [&](const auto& l) { return l.find(c.expected) != std::string::npos; }),
                      1);
        }
    }
}

TEST_F(LinuxMonitorsTest, PlainReadWriteTakesOverForGoodWhenRdwrIsRefused) {
    boot(linuxScenario(R"({"flavor": "linux", "displays": [{"vendor": 1, "model": 1,
        "linux": {"adapter": 4, "refusesRdwr": true}, "monitor": {"features": {"brightness": [40, 100]}}}]})"));
    const auto displays = enumerate();
    ASSERT_EQ(displays.size(), 1u);
    ASSERT_TRUE(displays[0].brightness);
    EXPECT_EQ(displays[0].brightness->current, 40);
    EXPECT_TRUE(busOf(displays[0]).plainReadWrite());
}

TEST_F(LinuxMonitorsTest, ForcingTheAddressGetsPastTheKernelDriver) {
    boot(linuxScenario(R"({"flavor": "linux", "displays": [{"vendor": 1, "model": 1,
        "linux": {"adapter": 4, "refusesRdwr": true, "slaveError": "EBUSY"}, "monitor": {}}]})"));
    machine->i2cDevices()->setForceSlaveAddress(true);
    const auto displays = enumerate();
    ASSERT_EQ(displays.size(), 1u);
    EXPECT_EQ(displays[0].ddcStatus, DDCStatus::verified);
}

TEST_F(LinuxMonitorsTest, BrokenEdidsAreListedWithoutAName) {
    boot(linuxScenario(R"({"flavor": "linux", "displays": [
        {"id": 1, "vendor": 1, "model": 1, "name": "Short", "edid": "00ffffffffffff00", "linux": {"adapter": 4}, "monitor": {}},
        {"id": 2, "vendor": 1, "model": 1, "name": "Zero", "edid": ")" + std::string(256, '0') + R"(", "linux": {"adapter": 5}, "monitor": {}},
        {"id": 3, "vendor": 1, "model": 1, "name": "Nothing", "hasEDID": false, "linux": {"link": "none", "adapter": 6}, "monitor": {}}]})"));
    const auto displays = enumerate();
    ASSERT_EQ(displays.size(), 2u); // without an EDID or a link there is nothing to pair by
    for (const auto& d : displays) {
        EXPECT_EQ(d.vendorID, 0u);
        EXPECT_EQ(d.name, "External Display");
        EXPECT_EQ(d.ddcStatus, DDCStatus::verified);
    }
}

TEST_F(LinuxMonitorsTest, AUdevReportEndsInOneEnumeration) {
    boot(linuxScenario(R"({"flavor": "linux", "displays": [{"id": 1, "vendor": 1, "model": 1, "linux": {"adapter": 4}, "monitor": {}}]})"));
    enumerate();
    manager->startMonitoring();
    EXPECT_TRUE(machine->hotPlug()->watching());
    EXPECT_EQ(machine->ledger().retained, 0u); // no registry watch on Linux

    auto second = monitorDisplay(2, "Second", 7, 7);
    second.connector.adapter = 9;
    ASSERT_TRUE(machine->plug(second));
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    while (manager->enumerationInProgress()) mainQueue().waitAndRun();
    mainQueue().runUntilIdle();
    const auto lines = logLines("Display");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "[Display] enumerateDisplays() called"), 2);
    const auto displays = manager->displays();
    ASSERT_EQ(displays.size(), 2u);
    EXPECT_EQ(busOf(displays[1]).bus(), 9);

    // A manager let go hears nothing more; the next one takes the reports over.
    manager.reset();
    ASSERT_TRUE(machine->unplug(2));
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    mainQueue().runUntilIdle();
    manager = std::make_shared<DisplayManager>(machine->platform(), ddc);
    manager->startMonitoring();
    ASSERT_TRUE(machine->plug(second));
    mainQueue().advance(DisplayManager::kHotPlugDelay);
    while (manager->enumerationInProgress()) mainQueue().waitAndRun();
    mainQueue().runUntilIdle();
    EXPECT_EQ(manager->displays().size(), 2u);
}

TEST(LinuxAdapterRules, OnlyDisplayAndDockAdaptersOutsideTheDenyListMayBeProbed) {
    using platform::I2CAdapterInfo;
    EXPECT_TRUE(adapterMayBeProbed(I2CAdapterInfo{1, "nvkm-0000:01:00.0-bus-0005", 0x030000}));
    EXPECT_TRUE(adapterMayBeProbed(I2CAdapterInfo{1, "AMDGPU DM aux hw bus 2", 0x038000}));
    EXPECT_TRUE(adapterMayBeProbed(I2CAdapterInfo{1, "dock", 0x0a0000}));
    EXPECT_FALSE(adapterMayBeProbed(I2CAdapterInfo{1, "i915 gmbus dpb", std::nullopt}));
    EXPECT_FALSE(adapterMayBeProbed(I2CAdapterInfo{1, "SMBus PIIX4 adapter", 0x0c0500}));
    EXPECT_FALSE(adapterMayBeProbed(I2CAdapterInfo{1, "AMDGPU SMU 0", 0x030000}));
    EXPECT_FALSE(adapterMayBeProbed(I2CAdapterInfo{1, "AMDGPU DM i2c OEM bus", 0x030000}));
    EXPECT_FALSE(adapterMayBeProbed(I2CAdapterInfo{1, "usb", 0x0c0330}));
}

} // namespace
} // namespace pw::test
