// The real sysfs and /dev/i2c-* code against a fake root: sysfs is a tree of files in a
// temporary folder, and the i2c-dev driver is the fake one linked into this program.

#include "FakeI2C.h"
#include "FakeRoot.h"

#include "base/DiagnosticLog.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "platform/Edid.h"
#include "platform/linux/LinuxDrmSysfs.h"
#include "platform/linux/LinuxI2CDevices.h"
#include "platform/drm/LinuxMonitors.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/posix/SystemClock.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/VirtualClock.h"
#include "platform/drm/I2CDevTransport.h"

#include <cerrno>
#include <gtest/gtest.h>

extern "C" int pw_fake_i2c_loaded();

namespace pw::test {
namespace {

// A brightness write of 80, and a brightness read request, as framed on the wire.
const std::vector<std::uint8_t> kSetBrightness = {0x84, 0x03, 0x10, 0x00, 0x50, 0x9F};
const std::vector<std::uint8_t> kGetBrightness = {0x82, 0x01, 0x10, 0xAC};

const I2CDevTransport& busOf(const ExternalDisplay& display) {
    return dynamic_cast<const I2CDevTransport&>(*display.transport);
}

// An Intel desktop: HDMI with a ddc link, DisplayPort with its AUX adapter, a laptop
// panel, a disconnected VGA, a connector vanishing mid-read, and the chipset's SMBus.
class FakeMachine : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(pw_fake_i2c_loaded(), 1);
        gpu = fake.pciDevice("0000:00:02.0", "0x030000");
        chipset = fake.pciDevice("0000:00:1f.4", "0x0c0500");
        hdmiAdapter = fake.adapter(gpu, 5, "i915 gmbus dpb");
        fake.adapter(chipset, 0, "SMBus I801 adapter at efa0");
        const auto card = fake.card(gpu, 0);
        fake.connector(card, "card0-HDMI-A-1", "connected", dell, 95, 5);
        const auto dp = fake.connector(card, "card0-DP-1", "connected", benq, 0);
        fake.adapter(dp, 7, "DPDDC-B");
        fake.connector(card, "card0-eDP-1", "connected", panel, 77);
        fake.connector(card, "card0-VGA-1", "disconnected", {}, 80);
        // Listed, but its attributes are gone: unplugged while the program looked.
        std::filesystem::create_directories(card / "card0-DP-2");
        std::filesystem::create_directory_symlink(card / "card0-DP-2",
                                                  fake.root() / "sys/class/drm/card0-DP-2");
        fake.device(0, "no_monitor\n");
        fake.device(5, "feature 10 30 100\nedid " + hex(dell) + "\n");
        fake.device(7, "feature 10 60 100\n");
    }

    // The display manager over the real calls, on virtual time.
    struct Program {
        std::shared_ptr<sim::VirtualClock> clock = std::make_shared<sim::VirtualClock>();
        std::shared_ptr<sim::ManualMainQueue> queue = std::make_shared<sim::ManualMainQueue>(*clock);
        platform::Platform machine;
        std::unique_ptr<ScopedPlatform> installed;
        std::shared_ptr<DDCManager> ddc = std::make_shared<DDCManager>(clock, queue);
        std::shared_ptr<DisplayManager> manager;

        Program(const std::filesystem::path& root, bool force) {
            const auto linuxMachine = platform::makeLinuxMachine({root, force, queue});
            machine = linuxMachine.platform;
            machine.clock = clock;
            machine.monitors = std::make_shared<LinuxMonitors>(LinuxMonitors::Parts{
                linuxMachine.drm, linuxMachine.i2cDevices, linuxMachine.hotPlug, clock});
            machine.systemLog = std::make_shared<sim::MemorySystemLog>();
            installed = std::make_unique<ScopedPlatform>(machine);
            manager = std::make_shared<DisplayManager>(machine, ddc);
            manager->enumerateDisplays();
            queue->runPending();
        }
        ~Program() {
            manager.reset();
            ddc.reset();
        }
        ExternalDisplay display(platform::DisplayID id) const {
            for (const auto& d : manager->displays())
                if (d.id == id) return d;
            ADD_FAILURE() << "no display " << id;
            return {};
        }
    };

    static std::vector<fakei2c::Transfer> transfersSince(std::chrono::steady_clock::time_point since) {
        std::vector<fakei2c::Transfer> ours;
        for (const auto& t : fakei2c::transfers())
            if (t.start >= since) ours.push_back(t);
        return ours;
    }

    FakeRoot fake;
    std::filesystem::path gpu, chipset, hdmiAdapter;
    std::vector<std::uint8_t> dell = edidOf(0x10AC, 0xA0C4, 1001, "DELL U2720Q");
    std::vector<std::uint8_t> benq = edidOf(0x09D1, 0x7F41, 2002, "BenQ PD2700U");
    std::vector<std::uint8_t> panel = edidOf(0x30E4, 0x0666, 0, "");
};

TEST_F(FakeMachine, SysfsListsConnectorsLinksAndAdaptersWithTheirDevicesClass) {
    platform::LinuxDrmSysfs sysfs(fake.root());
    EXPECT_TRUE(sysfs.present());

    const auto connectors = sysfs.connectors();
    ASSERT_EQ(connectors.size(), 4u); // card0-DP-2 vanished and is left out
    const auto& dp = connectors[0];
    EXPECT_EQ(dp.name, "card0-DP-1");
    EXPECT_EQ(dp.auxAdapter, 7);
    EXPECT_FALSE(dp.ddcAdapter);
    // No connector_id on this kernel: an id from its position, clear of real ids.
    EXPECT_EQ(dp.id, platform::LinuxDrmSysfs::kPositionalIds + 1);
    EXPECT_EQ(connectors[1].name, "card0-HDMI-A-1");
    EXPECT_EQ(connectors[1].id, 95u);
    EXPECT_EQ(connectors[1].ddcAdapter, 5);
    EXPECT_EQ(connectors[1].edid, dell);
    EXPECT_TRUE(connectors[1].enabled);
    EXPECT_EQ(connectors[2].status, "disconnected"); // card0-VGA-1
    EXPECT_TRUE(connectors[2].edid.empty());
    EXPECT_TRUE(connectors[3].builtin()); // card0-eDP-1

    const auto adapters = sysfs.adapters();
    ASSERT_EQ(adapters.size(), 3u);
    EXPECT_EQ(adapters[0].name, "SMBus I801 adapter at efa0");
    EXPECT_EQ(adapters[0].pciClass, 0x0c0500u);
    EXPECT_EQ(adapters[1].number, 5);
    EXPECT_EQ(adapters[1].pciClass, 0x030000u);
    EXPECT_EQ(adapters[2].number, 7); // below the connector, still the card's device
    EXPECT_EQ(adapters[2].pciClass, 0x030000u);

    EXPECT_EQ(platform::LinuxI2CDevices(fake.root()).list(), (std::vector<int>{0, 5, 7}));
}

TEST_F(FakeMachine, NoDrmAndNoDevicesAreToldApart) {
    FakeRoot empty;
    platform::LinuxDrmSysfs sysfs(empty.root());
    EXPECT_FALSE(sysfs.present());
    EXPECT_TRUE(sysfs.connectors().empty());
    EXPECT_TRUE(platform::LinuxI2CDevices(empty.root()).list().empty());
    int error = 0;
    EXPECT_EQ(platform::LinuxI2CDevices(empty.root()).open(3, error), nullptr);
    EXPECT_EQ(error, ENOENT);
}

TEST_F(FakeMachine, DeviceCallsReachTheMonitorAndTheLockIsExclusive) {
    platform::LinuxI2CDevices devices(fake.root());
    int error = 0;
    auto first = devices.open(5, error);
    auto second = devices.open(5, error);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->tryLock(), 0);
    EXPECT_EQ(second->tryLock(), EWOULDBLOCK); // a real flock on the device file
    first->unlock();
    EXPECT_EQ(second->tryLock(), 0);
    second->unlock();

    std::vector<std::uint8_t> request = {0x51, 0x82, 0x01, 0x10, 0xAC};
    std::vector<std::uint8_t> reply(11);
    const platform::I2CMessage write{0x37, false, request};
    const platform::I2CMessage read{0x37, true, reply};
    EXPECT_EQ(first->transfer({&write, 1}), 0);
    EXPECT_EQ(first->transfer({&read, 1}), 0);
    EXPECT_EQ(reply, (std::vector<std::uint8_t>{0x6E, 0x88, 0x02, 0x00, 0x10, 0x00, 0x00, 0x64,
                                                0x00, 0x1E, reply[10]}));
    // Nothing at another address; the chipset's bus has nothing at all.
    const platform::I2CMessage elsewhere{0x38, false, request};
    EXPECT_EQ(first->transfer({&elsewhere, 1}), ENXIO);
    auto smbus = devices.open(0, error);
    ASSERT_TRUE(smbus);
    EXPECT_EQ(smbus->transfer({&write, 1}), ENXIO);
}

TEST_F(FakeMachine, TransportFallsBackToPlainReadWriteWhenTheDriverRefusesRdwr) {
    fake.device(9, "refuse_rdwr\nslave_busy\nfeature 10 42 100\n");
    auto devices = std::make_shared<platform::LinuxI2CDevices>(fake.root());
    auto clock = std::make_shared<sim::VirtualClock>();
    I2CDevTransport blocked(9, devices, clock);
    EXPECT_FALSE(blocked.read(kGetBrightness, 11));
    EXPECT_TRUE(blocked.plainReadWrite());
    EXPECT_TRUE(blocked.unreachable());
    EXPECT_NE(blocked.problem().find("/dev/i2c-9: address 0x37 is claimed"), std::string::npos);

    // With the user's permission the address is shared despite the driver.
    I2CDevTransport forced(9, devices, clock, {.forceAddress = true});
    const auto reply = forced.read(kGetBrightness, 11);
    ASSERT_TRUE(reply);
    EXPECT_EQ((*reply)[9], 42);
    EXPECT_EQ(forced.problem(), "");
}

TEST_F(FakeMachine, EdidAtTheEepromAddressIsReadWhole) {
    platform::LinuxI2CDevices devices(fake.root());
    std::string problem;
    EXPECT_EQ(I2CDevTransport::readEdid(devices, nullptr, 5, &problem), dell);
    EXPECT_FALSE(I2CDevTransport::readEdid(devices, nullptr, 7, &problem));
    EXPECT_NE(problem.find("/dev/i2c-7: no answer"), std::string::npos);
}

TEST_F(FakeMachine, DisplayManagerFindsAndReadsTheMonitorsOverTheRealCalls) {
    Program program(fake.root(), false);
    const auto displays = program.manager->displays();
    ASSERT_EQ(displays.size(), 2u); // the panel is the system's; VGA is unplugged
    EXPECT_EQ(displays[0].name, "BenQ PD2700U");
    EXPECT_EQ(displays[0].vendorID, 0x09D1u);
    ASSERT_TRUE(displays[0].brightness);
    EXPECT_EQ(displays[0].brightness->current, 60);
    EXPECT_EQ(displays[1].id, 95u);
    EXPECT_EQ(displays[1].name, "DELL U2720Q");
    ASSERT_TRUE(displays[1].brightness);
    EXPECT_EQ(displays[1].brightness->current, 30);

    bool written = false;
    program.ddc->write(displays[1].transport, VCPCode::brightness, 75, [&](bool ok) { written = ok; });
    while (!written && program.queue->waitAndRun(std::chrono::seconds(5))) {
    }
    EXPECT_TRUE(written);
    program.ddc->invalidateCache(*displays[1].transport);
    const auto now = program.ddc->read(displays[1].transport, VCPCode::brightness);
    ASSERT_TRUE(now);
    EXPECT_EQ(now->current, 75);
}

TEST_F(FakeMachine, ABusHeldByAnotherProgramCostsOneWaitPerCommandAndNamesIt) {
    struct Case {
        bool visible; // the holder shows in /proc
        const char* says;
    };
    const Case cases[] = {
        {true, "/dev/i2c-5 is in use by another DDC/CI program, othertool (pid 4321), which held "
               "its lock for over 1000 ms"},
        {false, "(\"fuser -v /dev/i2c-5\" names it)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        std::filesystem::remove_all(fake.root() / "proc");
        if (c.visible) fake.process(4321, "othertool", 5);
        Program program(fake.root(), false);
        const auto hdmi = program.display(95);
        platform::LinuxI2CDevices other(fake.root());
        int error = 0;
        auto holder = other.open(5, error);
        ASSERT_EQ(holder->tryLock(), 0);

        program.ddc->invalidateCache(*hdmi.transport);
        const auto before = program.clock->now();
        EXPECT_FALSE(program.ddc->read(hdmi.transport, VCPCode::brightness));
        EXPECT_FALSE(program.ddc->performWrite(hdmi.transport, kSetBrightness));
        // One wait of a second for the whole command, not one per pass and attempt.
        const auto waited = program.clock->now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(1000));
        EXPECT_LT(waited, std::chrono::milliseconds(1100));
        EXPECT_TRUE(hdmi.transport->busHeld());
        EXPECT_NE(busOf(hdmi).problem().find(c.says), std::string::npos) << busOf(hdmi).problem();

        holder->unlock();
        EXPECT_TRUE(program.ddc->read(hdmi.transport, VCPCode::brightness));
    }
}

TEST_F(FakeMachine, TheMonitorsQuietTimeHoldsForTheNextProcessToo) {
    // Two device sets on one root stand for two processes of the program.
    auto clock = std::make_shared<platform::SystemClock>();
    I2CDevTransport first(5, std::make_shared<platform::LinuxI2CDevices>(fake.root()), clock);
    I2CDevTransport second(5, std::make_shared<platform::LinuxI2CDevices>(fake.root()), clock);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(first.write(kSetBrightness));
    ASSERT_TRUE(second.read(kGetBrightness, 11));

    const auto ours = transfersSince(start);
    ASSERT_EQ(ours.size(), 3u); // the write, then the other's request and reply
    EXPECT_GE(ours[1].start - ours[0].end, I2CDevTransport::kQuietTime);
}

TEST_F(FakeMachine, AnAdapterNumberThatCameBackAsAnotherBusIsNotWrittenTo) {
    Program program(fake.root(), false);
    const auto hdmi = program.display(95);
    ASSERT_EQ(hdmi.ddcStatus, DDCStatus::verified);

    // The dock goes; its number comes back as the chipset's bus, with something at 0x37.
    fake.removeAdapter(gpu, 5);
    fake.adapter(chipset, 5, "SMBus I801 adapter at efa0");
    fake.device(5, "feature 10 1 100\n");
    const auto swapped = std::chrono::steady_clock::now();

    EXPECT_FALSE(program.ddc->performWrite(hdmi.transport, kSetBrightness));
    EXPECT_TRUE(transfersSince(swapped).empty());
    EXPECT_TRUE(busOf(hdmi).unreachable());
    EXPECT_NE(busOf(hdmi).problem().find("/dev/i2c-5 is no longer card0-HDMI-A-1's DDC channel"),
              std::string::npos)
        << busOf(hdmi).problem();
}

TEST_F(FakeMachine, AKernelDriverBoundAtTheDdcAddressKeepsUsOffUnlessAllowed) {
    fake.bindAt0x37(hdmiAdapter, 5, "ddcci");
    EXPECT_EQ(platform::LinuxDrmSysfs(fake.root()).ddcDriver(5), "ddcci");
    for (const bool force : {false, true}) {
        SCOPED_TRACE(force);
        const auto start = std::chrono::steady_clock::now();
        Program program(fake.root(), force);
        const auto hdmi = program.display(95);
        // I2C_RDWR would have reached the monitor: only sysfs tells about the driver.
        EXPECT_EQ(hdmi.ddcStatus, force ? DDCStatus::verified : DDCStatus::unverified);
        if (!force) {
            EXPECT_NE(busOf(hdmi).problem().find(
                          "/dev/i2c-5: address 0x37 is claimed by a kernel driver (ddcci)"),
                      std::string::npos);
            for (const auto& t : transfersSince(start))
                EXPECT_FALSE(t.address == 0x37 && t.path.ends_with("/dev/i2c-5")) << t.path;
        }
    }
}

} // namespace
} // namespace pw::test
