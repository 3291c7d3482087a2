#include "ddc/DDCMessages.h"

#include "app/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/SimHostInfo.h"
#include "platform/sim/VirtualClock.h"

#include <gtest/gtest.h>

namespace pw::ddc {
namespace {

using Bytes = std::vector<std::uint8_t>;
using platform::LogLevel;

template <std::size_t N> Bytes bytes(const std::array<std::uint8_t, N>& a) {
    return Bytes(a.begin(), a.end());
}

// A monitor at brightness 50 of 100.
const Bytes kReply = {0x6E, 0x88, 0x02, 0x00, 0x10, 0x00, 0x00, 0x64, 0x00, 0x32, 0xF2};

// The reply with one byte changed and its checksum made right again.
Bytes replyWith(std::size_t index, std::uint8_t value) {
    Bytes reply = kReply;
    reply[index] = value;
    reply.back() = static_cast<std::uint8_t>(kReply.back() ^ kReply[index] ^ value);
    return reply;
}

TEST(DDCMessages, FramesWireFormDumpAndVocabulary) {
    EXPECT_EQ(bytes(makeGetVCPRequest(0x10)), (Bytes{0x82, 0x01, 0x10, 0xAC}));
    EXPECT_EQ(bytes(makeGetVCPRequest(0x60)), (Bytes{0x82, 0x01, 0x60, 0xDC}));
    EXPECT_EQ(bytes(makeGetVCPRequest(0xD6)), (Bytes{0x82, 0x01, 0xD6, 0x6A}));
    EXPECT_EQ(bytes(makeSetVCPRequest(0x62, 30)), (Bytes{0x84, 0x03, 0x62, 0x00, 0x1E, 0xC4}));
    EXPECT_EQ(bytes(makeSetVCPRequest(0x12, 0x1234)), (Bytes{0x84, 0x03, 0x12, 0x12, 0x34, 0x8C}));
    // The wire form re-derives the checksum from 0x51 on; it must land on the same byte.
    EXPECT_EQ(intelWireForm(makeSetVCPRequest(0x12, 0x1234)),
              (Bytes{0x51, 0x84, 0x03, 0x12, 0x12, 0x34, 0x8C}));
    EXPECT_TRUE(intelWireForm({}).empty());
    EXPECT_EQ(hexDump(kReply), "6E 88 02 00 10 00 00 64 00 32 F2");
    EXPECT_EQ(hexDump(Bytes{}), "");

    for (VCPCode code : kAllVCPCodes)
        EXPECT_EQ(vcpCodeFromRaw(rawValue(code)), code);
    for (InputSource source : kAllInputSources)
        EXPECT_EQ(inputSourceFromRaw(rawValue(source)), source);
    EXPECT_FALSE(vcpCodeFromRaw(0x11));
    EXPECT_FALSE(inputSourceFromRaw(0x0E));
    EXPECT_FALSE(inputSourceFromRaw(0x00));
    EXPECT_EQ(inputSourceFromRaw(0x0F), InputSource::displayPort1);
}

TEST(DDCMessages, RepliesAreDecodedOrRejectedToBothLogs) {
    auto clock = std::make_shared<sim::VirtualClock>();
    auto systemLog = std::make_shared<sim::MemorySystemLog>();
    platform::Platform platform;
    platform.systemLog = systemLog;
    test::ScopedPlatform scoped(platform);
    test::TempDir dir;
    DiagnosticLog::resetForTesting();
    const sim::SimHostInfo host(platform::Flavor::appleSilicon);
    DiagnosticLog::start(dir / "Panelwright.log", host, *clock);

    EXPECT_EQ(parseVCPReply(kReply), (DDCReadResult{50, 100}));
    EXPECT_EQ(parseVCPReply(replyWith(4, 0x62)), (DDCReadResult{50, 100})); // echo not compared
    EXPECT_EQ(parseVCPReply(replyWith(6, 0x12)), (DDCReadResult{50, 0x1264}));
    EXPECT_FALSE(parseVCPReply(std::span(kReply).first(10))); // short: silent
    EXPECT_TRUE(systemLog->entries().empty());

    Bytes badChecksum = kReply;
    badChecksum.back() = 0xF3;
    Bytes everythingWrong = replyWith(2, 0x01); // the checksum is judged first
    everythingWrong[3] = 0x01;
    for (const Bytes& reply :
         {badChecksum, replyWith(2, 0xAB), replyWith(3, 0x01), everythingWrong})
        EXPECT_FALSE(parseVCPReply(reply));

    const std::vector<sim::MemorySystemLog::Entry> expected = {
        {"", "DDC", LogLevel::error, "DDC response checksum mismatch: expected 242, got 243"},
        {"", "DDC", LogLevel::error, "DDC wrong response type: expected 0x02, got 0xAB"},
        {"", "DDC", LogLevel::info, "DDC VCP code not supported by display (status: 1)"},
        {"", "DDC", LogLevel::error, "DDC response checksum mismatch: expected 240, got 241"}};
    const auto entries = systemLog->entries();
    ASSERT_EQ(entries.size(), expected.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_EQ(entries[i].category, expected[i].category);
        EXPECT_EQ(entries[i].level, expected[i].level);
        EXPECT_EQ(entries[i].message, expected[i].message);
    }

    const std::string file = test::readFile(dir / "Panelwright.log");
    DiagnosticLog::resetForTesting();
    std::size_t lines = 0; // nothing else, in particular not the short buffer
    for (std::size_t at = 0; (at = file.find("] [DDC] ", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(lines, 4u);
    for (const std::string line :
         {"[DDC] Checksum mismatch: expected 242, got 243. Response: " + hexDump(badChecksum),
          std::string("[DDC] Wrong response type: 6E 88 AB 00 10 00 00 64 00 32 5B"),
          std::string("[DDC] VCP code unsupported (status=1)"),
          "[DDC] Checksum mismatch: expected 240, got 241. Response: " + hexDump(everythingWrong)})
        EXPECT_NE(file.find("] " + line + "\n"), std::string::npos) << line;
}

} // namespace
} // namespace pw::ddc
