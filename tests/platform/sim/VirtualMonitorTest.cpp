#include "platform/sim/VirtualMonitor.h"

#include "ddc/DDCMessages.h"
#include "platform/sim/SimAVService.h"
#include "platform/sim/VirtualClock.h"
#include "support/SerialQueue.h"

#include <barrier>
#include <gtest/gtest.h>
#include <thread>

namespace pw::sim {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

// Requests spelled out by hand check the monitor against the wire format itself; the
// program's own builders and parser are used as a cross-check on top.
const Bytes kGetBrightness = {0x82, 0x01, 0x10, 0xAC};
const Bytes kBrightnessReply = {0x6E, 0x88, 0x02, 0x00, 0x10, 0x00, 0x00, 0x64, 0x00, 0x32, 0xF2};
const Bytes kNullMessage = {0x6E, 0x80, 0xBE, 0, 0, 0, 0, 0, 0, 0, 0};

class VirtualMonitorTest : public ::testing::Test {
protected:
    void make() { monitor = std::make_unique<VirtualMonitor>(setup, clock); }
    std::int32_t send(const Bytes& frame, std::uint32_t data = 0x51) {
        return monitor->receive(0x37, data, frame);
    }
    Bytes read(std::int32_t expectedResult = 0) {
        Bytes out(11, 0xEE);
        EXPECT_EQ(monitor->respond(0x37, 0x51, out), expectedResult);
        return out;
    }
    Bytes ask(const Bytes& frame) {
        EXPECT_EQ(send(frame), 0);
        clock.advance(40ms);
        return read();
    }
    // One Get transaction per character: what the host saw.
    std::string transactions(int n) {
        std::string seen;
        for (int i = 0; i < n; ++i) {
            if (send(kGetBrightness) != 0) {
                seen += 'W'; // the write failed
                continue;
            }
            clock.advance(40ms);
            Bytes out(11);
            if (monitor->respond(0x37, 0x51, out) != 0) {
                seen += 'R';
                continue;
            }
            Bytes opcodeFixed = out, checksumFixed = out;
            opcodeFixed[2] = 0x02;
            opcodeFixed.back() ^= static_cast<std::uint8_t>(out[2] ^ 0x02);
            checksumFixed.back() = kBrightnessReply.back();
            if (out == kBrightnessReply)
                seen += '.';
            else if (out == kNullMessage)
                seen += '0';
            else if (opcodeFixed == kBrightnessReply)
                seen += 'O'; // resealed: only 0x02 is off
            else if (checksumFixed == kBrightnessReply)
                seen += 'C';
            else
                seen += '?';
        }
        return seen;
    }

    VirtualClock clock;
    MonitorSpec setup = MonitorSpec::withDefaultFeatures();
    std::unique_ptr<VirtualMonitor> monitor = std::make_unique<VirtualMonitor>(setup, clock);
};

TEST_F(VirtualMonitorTest, ReplyIsReadyAfterTheDelayAndReadOnce) {
    ASSERT_EQ(send(kGetBrightness), 0);
    EXPECT_EQ(read(), kNullMessage); // too early, yet the bus transfer itself worked
    clock.advance(40ms - 1ns);
    EXPECT_EQ(read(), kNullMessage);
    clock.advance(1ns);
    EXPECT_EQ(read(), kBrightnessReply);
    EXPECT_EQ(read(), kNullMessage);

    const auto volume = ddc::makeGetVCPRequest(0x62);
    EXPECT_EQ(ddc::parseVCPReply(ask(Bytes(volume.begin(), volume.end())), 0x62),
              (ddc::VCPReply{ddc::VCPReply::Kind::value, {50, 100}}));
}

TEST_F(VirtualMonitorTest, UnsupportedCodesAnswerResultOneAndWritesClampOrDrop) {
    setup.unsupported = {0x12};
    make();
    EXPECT_EQ(ask({0x82, 0x01, 0x16, 0xAA}), // red gain: not in the table
              (Bytes{0x6E, 0x88, 0x02, 0x01, 0x16, 0x00, 0x00, 0x00, 0x00, 0x00, 0xA3}));
    EXPECT_EQ(ask({0x82, 0x01, 0x12, 0xAE})[3], 0x01); // contrast: listed, but unsupported

    EXPECT_EQ(send({0x84, 0x03, 0x10, 0x00, 0x1E, 0xB6}), 0); // brightness 30
    clock.advance(setup.quietTime);
    EXPECT_EQ(ask(kGetBrightness)[9], 30);
    const auto tooBig = ddc::makeSetVCPRequest(0x10, 0x1234);
    EXPECT_EQ(send(Bytes(tooBig.begin(), tooBig.end())), 0);
    EXPECT_EQ(monitor->feature(0x10)->current, 100);
    clock.advance(setup.quietTime);
    EXPECT_EQ(send({0x84, 0x03, 0x12, 0x00, 0x0A, 0xA0}), 0); // contrast 10: dropped
    EXPECT_EQ(monitor->feature(0x12)->current, 75);
    EXPECT_EQ(monitor->requestsIgnored(), 0u);
}

// After a setting the monitor wants a quiet bus; what comes sooner is lost, a Get
// and a Set alike, and an unsupported code's Set (which it drops) asks for no quiet.
TEST_F(VirtualMonitorTest, RequestsInsideTheQuietTimeAfterASetAreLost) {
    const Bytes set30 = {0x84, 0x03, 0x10, 0x00, 0x1E, 0xB6}, set40 = {0x84, 0x03, 0x10, 0x00, 0x28, 0x80};
    ASSERT_EQ(send(set30), 0);
    clock.advance(setup.quietTime - 1ns);
    EXPECT_EQ(ask(kGetBrightness), kNullMessage); // asked 1 ns too soon
    ASSERT_EQ(send(set30), 0);                     // 40 ms later: accepted, quiet again
    clock.advance(setup.quietTime - 1ns);
    EXPECT_EQ(send(set40), 0);
    EXPECT_EQ(monitor->feature(0x10)->current, 30);
    clock.advance(1ns);
    EXPECT_EQ(send(set40), 0);
    EXPECT_EQ(monitor->feature(0x10)->current, 40);
    EXPECT_EQ(monitor->requestsIgnored(), 2u);

    setup.features.erase(0x12);
    make();
    ASSERT_EQ(send({0x84, 0x03, 0x12, 0x00, 0x0A, 0xA0}), 0);
    EXPECT_EQ(ask(kGetBrightness)[9], 50);
}

TEST_F(VirtualMonitorTest, MalformedRequestsAreAcknowledgedButIgnored) {
    const std::vector<std::pair<Bytes, std::uint32_t>> bad = {
        {{0x82, 0x01, 0x10, 0xAD}, 0x51},       // checksum
        {{0x83, 0x01, 0x10, 0xAC}, 0x51},       // length byte says three
        {{0x02, 0x01, 0x10, 0x2C}, 0x51},       // no length flag
        {{0x82, 0x01, 0x10, 0xAC, 0x00}, 0x51}, // trailing byte
        {{0x82, 0x01, 0x10, 0xAC}, 0x50},       // wrong source address
        {{0x82, 0x07, 0x10, 0xAA}, 0x51},       // unknown opcode
        {{}, 0x51},
    };
    for (const auto& [frame, data] : bad) {
        EXPECT_EQ(send(frame, data), 0);
        clock.advance(40ms);
        EXPECT_EQ(read(), kNullMessage) << ddc::hexDump(frame);
    }
    EXPECT_EQ(monitor->requestsIgnored(), bad.size());
    EXPECT_EQ(monitor->requestsAccepted(), 0u);
}

TEST_F(VirtualMonitorTest, OnlyAnAttachedMonitorAtItsAddressAcknowledges) {
    Bytes out(11);
    EXPECT_NE(monitor->receive(0x50, 0x51, kGetBrightness), 0);
    EXPECT_NE(monitor->respond(0x50, 0x51, out), 0);
    ASSERT_EQ(send(kGetBrightness), 0);
    monitor->setAttached(false);
    clock.advance(40ms);
    read(VirtualMonitor::kNotAcknowledged);
    EXPECT_NE(send(kGetBrightness), 0);
    monitor->setAttached(true);
    EXPECT_EQ(read(), kNullMessage); // the pending reply went with the cable
}

TEST_F(VirtualMonitorTest, EachFaultSpoilsWhatItCounts) {
    auto run = [&](auto script, int n) {
        setup.faults = {};
        script(setup.faults);
        make();
        return transactions(n);
    };
    using Faults = MonitorSpec::Faults;
    EXPECT_EQ(run([](Faults& f) { f.corruptChecksum.count = 2; }, 3), "CC.");
    EXPECT_EQ(run([](Faults& f) { f.wrongOpcode.count = 1; }, 2), "O.");
    EXPECT_EQ(run([](Faults& f) { f.nullReply.count = 1; }, 2), "0.");
    EXPECT_EQ(run([](Faults& f) { f.nak.count = 3; }, 2), "WW");
    read(VirtualMonitor::kNotAcknowledged); // reads count as well
    EXPECT_EQ(transactions(1), ".");
    EXPECT_EQ(monitor->requestsAccepted(), 1u); // NAKed writes never reached it
    EXPECT_EQ(run([](Faults& f) { f.silent.always = true, f.nak.count = 1; }, 3), "WWW");
    read(VirtualMonitor::kNotAcknowledged);
    EXPECT_EQ(run([](Faults& f) { f.nullReply.count = 1, f.corruptChecksum.always = true; }, 3),
              "0CC");

    // Early reads are not replies and use up nothing; the snapshot keeps the script.
    run([](Faults& f) { f.corruptChecksum.count = 1; }, 0);
    ASSERT_EQ(send(kGetBrightness), 0);
    EXPECT_EQ(read(), kNullMessage);
    EXPECT_EQ(transactions(2), "C.");
    EXPECT_EQ(monitor->snapshot().faults.corruptChecksum.count, 1u);
}

TEST(SimAVService, TransfersReachTheMonitorTakeBusTimeAndAreLogged) {
    auto clock = std::make_shared<VirtualClock>();
    auto bus = std::make_shared<BusLog>(*clock);
    auto monitor = std::make_shared<VirtualMonitor>(MonitorSpec::withDefaultFeatures(), *clock);
    SimAVService service(monitor, bus, "display 2", 7), noDDC(nullptr, bus, "display 3", 8);
    Bytes reply(11);
    SerialQueue("com.panelwright.globalDDCQueue").sync([&] {
        EXPECT_EQ(service.writeI2C(0x37, 0x51, kGetBrightness.data(), 4), 0);
        clock->sleepFor(50ms);
        EXPECT_EQ(service.readI2C(0x37, 0x51, reply.data(), 11), 0);
    });
    EXPECT_EQ(reply, kBrightnessReply);
    EXPECT_EQ(noDDC.writeI2C(0x37, 0x51, kGetBrightness.data(), 4), SimAVService::kNoDevice);
    EXPECT_EQ(noDDC.readI2C(0x37, 0x51, reply.data(), 11), SimAVService::kNoDevice);

    const auto log = bus->transfers();
    ASSERT_EQ(log.size(), 4u);
    EXPECT_EQ(log[0].endpoint, "display 2");
    EXPECT_EQ(log[0].bytes, kGetBrightness);
    EXPECT_EQ(log[0].queueLabel, "com.panelwright.globalDDCQueue");
    EXPECT_EQ(log[0].end - log[0].start, 6 * SimAVService::kByteTime); // addresses + frame
    EXPECT_EQ(log[1].bytes, kBrightnessReply);
    EXPECT_EQ(log[1].start - log[0].end, 50ms);
    EXPECT_EQ(log[3].result, SimAVService::kNoDevice);
    EXPECT_EQ(bus->overlapCount(), 0u);
    EXPECT_EQ(clock->sleeps().size(), 1u); // bus time passes, but nobody slept
}

TEST(BusLog, FlagsTransfersInFlightTogetherOnly) {
    VirtualClock clock;
    BusLog bus(clock);
    auto transfer = [&](std::barrier<>* inside) {
        const auto ticket = bus.begin(BusTransfer::Kind::write, "a", 0x37, 0x51);
        if (inside) inside->arrive_and_wait();
        bus.finish(ticket, {}, 0);
    };
    std::thread(transfer, nullptr).join();
    std::thread(transfer, nullptr).join();
    EXPECT_EQ(bus.overlapCount(), 0u);
    std::barrier<> bothInside(2);
    std::thread first(transfer, &bothInside), second(transfer, &bothInside);
    first.join();
    second.join();
    EXPECT_EQ(bus.overlapCount(), 2u);

    // A transfer in flight across `clear` is dropped, not filed over a newer one.
    const auto stale = bus.begin(BusTransfer::Kind::write, "a", 0x37, 0x51);
    bus.clear();
    const auto fresh = bus.begin(BusTransfer::Kind::write, "a", 0x37, 0x51);
    bus.finish(stale, {1}, 5);
    bus.finish(fresh, {2}, 0);
    ASSERT_EQ(bus.transfers().size(), 1u);
    EXPECT_EQ(bus.transfers()[0].bytes, Bytes{2});
    EXPECT_EQ(bus.overlapCount(), 0u);
}

} // namespace
} // namespace pw::sim
