#include "platform/macos/IntelTransport.h"

#include "base/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "ddc/DDCMessages.h"
#include "platform/sim/ManualMainQueue.h"
#include "platform/sim/SimHostFacts.h"
#include "platform/sim/VirtualClock.h"
#include "platform/macos/RecordingFramebufferI2C.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace pw {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class IntelTransportTest : public ::testing::Test {
protected:
    IntelTransportTest() { DiagnosticLog::start(dir / "Panelwright.log", host, *clock); }
    ~IntelTransportTest() override { DiagnosticLog::resetForTesting(); }

    IntelTransport make(platform::IOObject fb) { return {fb, registry, i2c, clock}; }
    // The "Intel" lines so far, without time stamps.
    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        std::istringstream in(test::readFile(dir / "Panelwright.log"));
        for (std::string line; std::getline(in, line);)
            if (const auto at = line.find("] [Intel] "); at != std::string::npos)
                out.push_back(line.substr(at + 10));
        return out;
    }

    test::TempDir dir;
    sim::SimHostFacts host{sim::Flavor::intel};
    std::shared_ptr<sim::VirtualClock> clock = std::make_shared<sim::VirtualClock>();
    std::shared_ptr<sim::ManualMainQueue> mainQueue =
        std::make_shared<sim::ManualMainQueue>(*clock);
    std::shared_ptr<sim::SimRegistry> registry = std::make_shared<sim::SimRegistry>(mainQueue);
    std::shared_ptr<test::RecordingFramebufferI2C> i2c =
        std::make_shared<test::RecordingFramebufferI2C>(*registry);
};

// The wire form re-derives the checksum from 0x51 on; it must land on the frame's own byte.
TEST(IntelWireForm, EndsOnTheFramesOwnChecksum) {
    const auto frame = ddc::makeSetVCPRequest(0x12, 0x1234);
    EXPECT_EQ(IntelTransport::wireBytes(frame),
              (std::vector<std::uint8_t>{0x51, 0x84, 0x03, 0x12, 0x12, 0x34, 0x8C}));
    EXPECT_TRUE(IntelTransport::wireBytes({}).empty());
}

TEST_F(IntelTransportTest, SendsTheWireFormWithTheRequestFieldsOfWritesAndReads) {
    const auto fb = i2c->add(1);
    {
        auto transport = make(fb);
        EXPECT_EQ(transport.endpointKey(), static_cast<std::int64_t>(fb));
        EXPECT_EQ(registry->heldReferences(fb), 1u);

        // The frame's checksum is replaced by one seeded with the destination address.
        const auto reply = transport.read(ddc::makeGetVCPRequest(0x10), 11);
        EXPECT_EQ(reply, (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
        ASSERT_TRUE(transport.write(ddc::makeSetVCPRequest(0x10, 0x32)));
        EXPECT_FALSE(transport.read({}, 11)); // nothing to send: no bus is touched
        ASSERT_EQ(i2c->requests.size(), 2u);

        const auto& [readBus, read, readWire, zeroed] = i2c->requests[0];
        EXPECT_THAT(readWire, ElementsAre(0x51, 0x82, 0x01, 0x10, 0xAC));
        EXPECT_TRUE(zeroed);
        EXPECT_EQ(read.sendTransactionType, 1u);
        EXPECT_EQ(read.replyTransactionType, 2u); // the interface reports mask 6
        EXPECT_EQ(read.sendAddress, 0x6Eu);
        EXPECT_EQ(read.replyAddress, 0x6Fu);
        EXPECT_EQ(read.replySubAddress, 0x51);
        EXPECT_EQ(read.minReplyDelay, 10u);
        EXPECT_EQ(read.replyBytes, 11u);

        const auto& write = i2c->requests[1];
        EXPECT_THAT(write.wire, ElementsAre(0x51, 0x84, 0x03, 0x10, 0x00, 0x32, 0x9A));
        EXPECT_EQ(write.request.sendAddress, 0x6Eu);
        EXPECT_EQ(write.request.replyTransactionType, 0u);
        EXPECT_EQ(write.request.replyAddress | write.request.replySubAddress |
                      write.request.minReplyDelay | write.request.replyBytes,
                  0u);
        EXPECT_EQ(write.request.replyBuffer, nullptr);
        EXPECT_THAT(lines(), ::testing::Contains("Read: replyType=2 sendBytes=5 replyBytes=11"));
    }
    EXPECT_TRUE(registry->ledger().balanced());
}

TEST_F(IntelTransportTest, ScansTheBusesInOrderUntilOneTakesTheRequest) {
    const auto fb = i2c->add(3);
    auto transport = make(fb);
    auto& buses = i2c->framebuffers[fb].buses;
    buses[0].openFails = true;
    clock->clearSleeps();
    const auto before = lines().size();

    // Bus 0 cannot be opened: no wait, no lines; bus 1 answers; bus 2 is never asked.
    EXPECT_TRUE(transport.read(ddc::makeGetVCPRequest(0x10), 11));
    EXPECT_THAT(i2c->copied, ElementsAre(0u, 1u));
    const auto after = lines();
    EXPECT_THAT(std::vector(after.begin() + static_cast<std::ptrdiff_t>(before), after.end()),
                ElementsAre("Read: replyType=2 sendBytes=5 replyBytes=11",
                            "IOI2CSendRequest on bus 1...",
                            "IOI2CSendRequest result: ret=0 request.result=0"));
    ASSERT_EQ(clock->sleeps().size(), 1u);
    EXPECT_EQ(clock->sleeps()[0].duration, 10ms);

    // A request the bus takes (ret 0) but reports failed in its result fails that bus; the
    // scan goes on, and when every bus fails so does the transfer, with no further line.
    buses[0].openFails = false, buses[1].copyFails = true;
    buses[0].requestResult = buses[2].requestResult = -536870208;
    EXPECT_FALSE(transport.write(ddc::makeSetVCPRequest(0x10, 7)));
    EXPECT_EQ(i2c->requests.size(), 3u);
    EXPECT_EQ(lines().back(), "IOI2CSendRequest result: ret=0 request.result=-536870208");
    EXPECT_TRUE(i2c->open.empty()); // every connection closed

    i2c->framebuffers[fb].countFails = true;
    EXPECT_FALSE(transport.read(ddc::makeGetVCPRequest(0x10), 11));
    EXPECT_EQ(lines().back(), "No I2C buses on service " + std::to_string(fb));
    EXPECT_EQ(registry->heldReferences(buses[0].interface), 0u);
}

TEST_F(IntelTransportTest, TheFirstInterfaceWithAUsableMaskChoosesTheReplyType) {
    const auto chosen = [&](std::vector<std::optional<std::int64_t>> masks) {
        sim::SimRegistry machine(mainQueue);
        for (const auto& mask : masks) {
            const auto entry = machine.addEntry(machine.root(), "IOFramebufferI2CInterface", "i");
            machine.setProperty(entry, "IOI2CTransactionTypes",
                                mask ? platform::PropertyValue{*mask}
                                     : platform::PropertyValue{std::string("6")});
        }
        const auto type = IntelTransport::chooseReplyTransactionType(machine);
        EXPECT_TRUE(machine.ledger().balanced());
        return type;
    };
    EXPECT_EQ(chosen({6}), 2u); // within one mask the DDC/CI reply bit wins
    EXPECT_EQ(chosen({2, 4}), 1u);
    EXPECT_EQ(chosen({std::nullopt, 1, 4}), 2u); // text and a useless mask pass it on
    EXPECT_EQ(chosen({1}), 1u);
    EXPECT_THAT(
        lines(),
        ElementsAre("I2C transaction types: 6 (binary: 110)", "Using DDCciReplyTransactionType",
                    "I2C transaction types: 2 (binary: 10)", "Using SimpleTransactionType",
                    "I2C transaction types: 1 (binary: 1)",
                    "I2C transaction types: 4 (binary: 100)", "Using DDCciReplyTransactionType",
                    "I2C transaction types: 1 (binary: 1)",
                    "No transaction types found, defaulting to Simple"));
}

} // namespace
} // namespace pw
