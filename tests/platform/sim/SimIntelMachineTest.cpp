#include "platform/sim/SimFramebufferI2C.h"
#include "platform/sim/SimMachine.h"

#include <gtest/gtest.h>

namespace pw::sim {
namespace {

using namespace std::chrono_literals;
using platform::I2CConnection;
using platform::I2CRequest;
using platform::IOObject;
using platform::kSuccess;
using Bytes = std::vector<std::uint8_t>;
using FB = SimFramebufferI2C;

// Wire forms spelled out by hand: source byte 0x51, the frame, then 0x6E XOR all before.
const Bytes kGetBrightnessWire = {0x51, 0x82, 0x01, 0x10, 0xAC};
const Bytes kNullMessage = {0x6E, 0x80, 0xBE, 0, 0, 0, 0, 0, 0, 0, 0};

Bytes sealed(Bytes bytes, std::uint8_t seed) {
    for (const auto b : bytes)
        seed ^= b;
    bytes.push_back(seed);
    return bytes;
}
Bytes setBrightnessWire(std::uint8_t value) {
    return sealed({0x51, 0x84, 0x03, 0x10, 0x00, value}, 0x6E);
}
Bytes brightnessReply(std::uint8_t current) { // of 100
    return sealed({0x6E, 0x88, 0x02, 0x00, 0x10, 0x00, 0x00, 0x64, 0x00, current}, 0x50);
}

DisplaySpec intelMonitor(platform::DisplayID id, std::uint32_t serial = 0) {
    DisplaySpec d;
    d.id = id;
    d.vendor = 4268;
    d.model = 41327;
    d.serial = serial;
    d.productNames = {{"en_US", "DELL U2720Q"}, {"de_DE", "DELL U2720Q"}};
    d.monitor = MonitorSpec::withDefaultFeatures(); // brightness 50 of 100
    return d;
}

SimMachine intelMachine(std::vector<DisplaySpec> displays) {
    Scenario s;
    s.flavor = sim::Flavor::intel;
    s.displays = std::move(displays);
    return SimMachine(std::move(s));
}

struct Sent {
    platform::KernReturn ret = -1;
    platform::KernReturn result = -1;
    Bytes reply;
};

// One request on one bus as the program makes it: the interface copied and opened, the
// connection closed and the interface released again.
Sent send(SimMachine& machine, IOObject framebuffer, std::uint32_t bus, const Bytes& wire,
          std::uint32_t replyType = 2, std::uint32_t minReplyDelay = 10) {
    auto& i2c = *machine.framebufferI2C();
    IOObject interface = 0;
    I2CConnection connection = 0;
    EXPECT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, bus, interface), kSuccess);
    EXPECT_EQ(i2c.interfaceOpen(interface, 0, connection), kSuccess);
    Sent sent;
    sent.reply.assign(replyType != 0 ? 11 : 0, 0xEE);
    I2CRequest request;
    request.sendTransactionType = 1;
    request.sendAddress = 0x6E;
    request.sendBuffer = wire.data();
    request.sendBytes = static_cast<std::uint32_t>(wire.size());
    if (replyType != 0) {
        request.replyTransactionType = replyType;
        request.replyAddress = 0x6F;
        request.replySubAddress = 0x51;
        request.minReplyDelay = minReplyDelay;
        request.replyBuffer = sent.reply.data();
        request.replyBytes = 11;
    }
    sent.ret = i2c.sendRequest(connection, 0, request);
    sent.result = request.result;
    EXPECT_EQ(i2c.interfaceClose(connection, 0), kSuccess);
    machine.registry().release(interface);
    return sent;
}

TEST(SimIntelMachine, WireRequestsReachTheMonitorAndRepliesComeBackAfterThePause) {
    auto machine = intelMachine({intelMonitor(2)});
    auto& i2c = *machine.framebufferI2C();
    const auto framebuffer = i2c.serviceForDisplayNumber(2);
    ASSERT_EQ(framebuffer, machine.framebufferEntry(2));

    auto got = send(machine, framebuffer, 0, kGetBrightnessWire);
    EXPECT_EQ(got.ret, kSuccess);
    EXPECT_EQ(got.result, kSuccess);
    EXPECT_EQ(got.reply, brightnessReply(50));
    // The monitor saw the source byte as the data address and the frame after it.
    const auto transfers = machine.bus().transfers();
    ASSERT_EQ(transfers.size(), 2u);
    EXPECT_EQ(transfers[0].endpoint, "display 2");
    EXPECT_EQ(transfers[0].chipAddress << 8 | transfers[0].dataAddress, 0x3751u);
    EXPECT_EQ(transfers[0].bytes, (Bytes{0x82, 0x01, 0x10, 0xAC}));
    EXPECT_EQ(transfers[1].bytes, brightnessReply(50));
    EXPECT_GE(transfers[1].start - transfers[0].end, 50ms);
    // The driver's pause is the world's time, not a sleep the program asked for.
    EXPECT_TRUE(machine.virtualClock()->sleeps().empty());

    EXPECT_EQ(send(machine, framebuffer, 0, setBrightnessWire(80), 0).result, kSuccess);
    machine.virtualClock()->advance(MonitorSpec{}.quietTime);
    EXPECT_EQ(send(machine, framebuffer, 0, kGetBrightnessWire, 1).reply, brightnessReply(80));
    EXPECT_EQ(i2c.openConnections(), 0u);
    EXPECT_TRUE(machine.ledger().balanced());
}

TEST(SimIntelMachine, AReplyReadTooSoonOrABadWireChecksumGetsNoAnswer) {
    auto hasty = intelMonitor(1);
    hasty.intel.replyWait = 10ms; // less than the monitor's 40 ms
    auto machine = intelMachine({hasty});
    const auto framebuffer = machine.framebufferEntry(1);

    EXPECT_EQ(send(machine, framebuffer, 0, kGetBrightnessWire, 2, 10).reply, kNullMessage);
    EXPECT_EQ(send(machine, framebuffer, 0, kGetBrightnessWire, 2, 45).reply, brightnessReply(50));

    // Acknowledged on the bus, then ignored: no reply, no change.
    auto badGet = kGetBrightnessWire, badSet = setBrightnessWire(9);
    badGet.back() ^= 0x01;
    badSet.back() ^= 0x01;
    const auto got = send(machine, framebuffer, 0, badGet, 2, 45);
    EXPECT_EQ(got.result, kSuccess);
    EXPECT_EQ(got.reply, kNullMessage);
    EXPECT_EQ(send(machine, framebuffer, 0, badSet, 0).result, kSuccess);
    EXPECT_EQ(machine.monitor(1)->feature(0x10)->current, 50);
    EXPECT_EQ(machine.monitor(1)->requestsIgnored(), 2u);
}

TEST(SimIntelMachine, OnlyTheBusesWiredToTheMonitorDeliver) {
    auto wired = intelMonitor(1);
    wired.intel.buses = 4;
    wired.intel.monitorBuses = {2};
    wired.intel.copyFails = {0};
    wired.intel.openFails = {1};
    wired.intel.busTransactionTypes = {6, 6, 6, 2};
    auto uncounted = intelMonitor(2);
    uncounted.intel.countFails = true;
    auto machine = intelMachine({wired, uncounted});
    auto& i2c = *machine.framebufferI2C();
    const auto framebuffer = machine.framebufferEntry(1);

    std::uint32_t count = 99;
    EXPECT_NE(i2c.i2cInterfaceCount(machine.framebufferEntry(2), count), kSuccess);
    EXPECT_EQ(count, 0u);
    IOObject interface = 0;
    I2CConnection connection = 0;
    EXPECT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, 0, interface), FB::kNotFound);
    EXPECT_NE(i2c.copyI2CInterfaceForBus(framebuffer, 4, interface), kSuccess);
    ASSERT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, 1, interface), kSuccess);
    EXPECT_EQ(i2c.interfaceOpen(interface, 0, connection), FB::kExclusiveAccess);
    machine.registry().release(interface);

    // A bus that leads nowhere takes the request and reports it failed in `result`.
    const auto nowhere = send(machine, framebuffer, 3, setBrightnessWire(10), 0);
    EXPECT_EQ(nowhere.ret, kSuccess);
    EXPECT_EQ(nowhere.result, FB::kNoDevice);
    // Bus 3 lists simple transfers only: a DDC/CI reply transaction never reaches the wire.
    EXPECT_EQ(send(machine, framebuffer, 3, kGetBrightnessWire).result, FB::kUnsupported);
    EXPECT_EQ(send(machine, framebuffer, 2, kGetBrightnessWire).reply, brightnessReply(50));
    EXPECT_EQ(machine.monitor(1)->requestsAccepted(), 1u);
    const auto transfers = machine.bus().transfers();
    ASSERT_EQ(transfers.size(), 3u);
    EXPECT_EQ(transfers[0].endpoint, "display 1 bus 3");
    EXPECT_EQ(transfers[1].endpoint, "display 1");

    I2CRequest request;
    EXPECT_EQ(i2c.sendRequest(12345, 0, request), FB::kNotOpen);
    EXPECT_EQ(machine.monitor(1)->feature(0x10)->current, 50);
    EXPECT_TRUE(machine.ledger().balanced());
}

TEST(SimIntelMachine, WindowServerLookupAndDisplayInformation) {
    DisplaySpec builtin;
    builtin.id = 1;
    builtin.builtin = true;
    builtin.vendor = 1552;
    auto lost = intelMonitor(2, 808464433);
    lost.intel.lookupFails = true;
    auto bare = intelMonitor(3);
    bare.intel.hasInfoDictionary = false;
    auto odd = intelMonitor(4);
    odd.intel.infoDictionary = {{"DisplayVendorID", platform::PropertyValue{std::string("10ac")}},
                                {"DisplaySerialNumber", std::nullopt}};
    auto machine = intelMachine({builtin, lost, bare, odd});
    auto& i2c = *machine.framebufferI2C();

    EXPECT_EQ(i2c.serviceForDisplayNumber(1), machine.framebufferEntry(1));
    EXPECT_EQ(i2c.serviceForDisplayNumber(2), 0u);
    EXPECT_EQ(i2c.serviceForDisplayNumber(99), 0u);
    EXPECT_EQ(machine.ledger().retained, 0u) << "the framebuffer handle is borrowed";

    const auto number = [](const platform::PropertyDictionary& d, const char* key) {
        return d.count(key) && d.at(key).number() ? *d.at(key).number() : -1;
    };
    auto info = i2c.displayInfoDictionary(machine.framebufferEntry(2), 0x200);
    ASSERT_TRUE(info);
    EXPECT_EQ((std::vector<std::int64_t>{number(*info, "DisplayVendorID"),
                                         number(*info, "DisplayProductID"),
                                         number(*info, "DisplaySerialNumber")}),
              (std::vector<std::int64_t>{4268, 41327, 808464433}));
    EXPECT_EQ(info->at("DisplayProductName").dictionary()->size(), 1u) << "preferred name only";
    EXPECT_EQ(
        number(*i2c.displayInfoDictionary(machine.framebufferEntry(1), 0x200), "DisplayVendorID"),
        1552);
    EXPECT_FALSE(i2c.displayInfoDictionary(machine.framebufferEntry(3), 0x200));
    info = i2c.displayInfoDictionary(machine.framebufferEntry(4), 0x200);
    EXPECT_TRUE(info->at("DisplayVendorID").string());
    EXPECT_FALSE(info->count("DisplaySerialNumber"));

    const auto gone = machine.framebufferEntry(4);
    ASSERT_TRUE(machine.unplug(4));
    EXPECT_EQ(i2c.serviceForDisplayNumber(4), 0u);
    EXPECT_FALSE(i2c.displayInfoDictionary(gone, 0));
}

TEST(SimIntelMachine, RegistryEntriesAndTheReferencesTheProgramHolds) {
    DisplaySpec builtin;
    builtin.id = 1;
    builtin.builtin = true;
    auto twoBuses = intelMonitor(2);
    twoBuses.intel.buses = 2;
    twoBuses.intel.busTransactionTypes = {2, std::nullopt};
    auto machine = intelMachine({builtin, twoBuses});
    auto& registry = machine.registry();
    auto& i2c = *machine.framebufferI2C();

    const auto all = [&](std::string_view className) {
        std::vector<IOObject> found;
        IOObject iterator = 0;
        EXPECT_EQ(registry.getMatchingServices(className, iterator), kSuccess);
        while (const auto object = registry.iteratorNext(iterator)) {
            found.push_back(object);
            registry.release(object);
        }
        registry.release(iterator);
        return found;
    };
    const auto masks = [&] {
        std::vector<std::int64_t> found;
        for (const auto interface : all("IOFramebufferI2CInterface")) {
            const auto mask = registry.property(interface, "IOI2CTransactionTypes");
            found.push_back(mask ? *mask->number() : -1);
        }
        return found;
    };
    EXPECT_EQ(all("IOFramebuffer"),
              (std::vector<IOObject>{machine.framebufferEntry(1), machine.framebufferEntry(2)}));
    EXPECT_EQ(masks(), (std::vector<std::int64_t>{6, 2, -1}));
    char path[512] = {};
    ASSERT_EQ(registry.path(all("IOFramebufferI2CInterface")[2], "IOService", path), kSuccess);
    EXPECT_STREQ(path, "IOService:/AppleACPIPlatformExpert/PCI0@0/IGPU@2/"
                       "AppleIntelFramebuffer@1/IOFramebufferI2CInterface@1");

    // Every copy is a reference the ledger holds the program to.
    const auto framebuffer = machine.framebufferEntry(2);
    IOObject interface = 0;
    ASSERT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, 0, interface), kSuccess);
    ASSERT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, 0, interface), kSuccess);
    auto ledger = machine.ledger();
    ASSERT_EQ(ledger.leaked.size(), 1u);
    EXPECT_EQ(ledger.leaked[0],
              "IOFramebufferI2CInterface #" + std::to_string(interface) + " still held 2 time(s)");
    registry.release(interface);
    registry.release(interface);
    I2CConnection connection = 0;
    EXPECT_EQ(i2c.interfaceOpen(interface, 0, connection), FB::kBadArgument) << "released";
    registry.release(interface);
    EXPECT_EQ(machine.ledger().overReleased.size(), 1u);

    // Hot-plug adds and removes whole framebuffers; a connection open across an unplug
    // reaches nothing any more.
    ASSERT_TRUE(machine.plug(intelMonitor(3)));
    EXPECT_EQ(masks(), (std::vector<std::int64_t>{6, 2, -1, 6}));
    ASSERT_EQ(i2c.copyI2CInterfaceForBus(framebuffer, 1, interface), kSuccess);
    ASSERT_EQ(i2c.interfaceOpen(interface, 0, connection), kSuccess);
    registry.release(interface);
    ASSERT_TRUE(machine.unplug(2));
    EXPECT_EQ(masks(), (std::vector<std::int64_t>{6, 6}));
    I2CRequest request;
    request.sendTransactionType = 1;
    request.sendAddress = 0x6E;
    EXPECT_EQ(i2c.sendRequest(connection, 0, request), kSuccess);
    EXPECT_EQ(request.result, FB::kNoDevice);
    EXPECT_EQ(i2c.interfaceClose(connection, 0), kSuccess);
    EXPECT_EQ(i2c.openConnections(), 0u);
}

} // namespace
} // namespace pw::sim
