#include "ddc/DDCMessages.h"

#include "base/DiagnosticLog.h"
#include "common/TestSupport.h"
#include "platform/sim/MemorySystemLog.h"
#include "platform/sim/SimHostFacts.h"
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

// Each buffer a bus may hand back, what it is taken for and the lines both logs get.
TEST(DDCMessages, RepliesAreDecodedOrRejectedToBothLogs) {
    auto clock = std::make_shared<sim::VirtualClock>();
    auto systemLog = std::make_shared<sim::MemorySystemLog>();
    platform::Platform platform;
    platform.systemLog = systemLog;
    test::ScopedPlatform scoped(platform);
    test::TempDir dir;
    DiagnosticLog::resetForTesting();
    const sim::SimHostFacts host(sim::Flavor::appleSilicon);
    DiagnosticLog::start(dir / "Panelwright.log", host, *clock);

    using Kind = VCPReply::Kind;
    Bytes badChecksum = kReply;
    badChecksum.back() = 0xF3;
    Bytes everythingWrong = replyWith(2, 0x01); // the checksum is judged first
    everythingWrong[3] = 0x01;
    Bytes withTrailer = kReply; // bytes past the announced length are not the reply's
    withTrailer.insert(withTrailer.end(), {0x12, 0x34});
    // A short answer the bus padded with 0xFF whose XOR still adds up: once shown as
    // "65535 of 43263".
    const Bytes padded = {0x62, 0x88, 0x02, 0x00, 0x10, 0x00, 0xA8, 0xFF, 0xFF, 0xFF, 0xFF};
    Bytes nullPadded(11, 0xFF);
    std::copy_n(Bytes{0x6E, 0x80, 0xBE}.begin(), 3, nullPadded.begin());
    struct Case {
        Bytes reply;
        VCPReply parsed;
        LogLevel level;
        std::string systemLine; // empty: nothing logged
        std::string fileLine;
    };
    const std::vector<Case> cases = {
        {kReply, {Kind::value, {50, 100}}, LogLevel::info, "", ""},
        {replyWith(6, 0x12), {Kind::value, {50, 0x1264}}, LogLevel::info, "", ""},
        {withTrailer, {Kind::value, {50, 100}}, LogLevel::info, "", ""},
        {Bytes(kReply.begin(), kReply.end() - 1), {Kind::rejected}, LogLevel::info, "", ""},
        {nullPadded, {Kind::busy}, LogLevel::info, "DDC monitor busy (null message)",
         "Null message: the monitor is busy"},
        {{0x6E, 0x80, 0xBE}, {Kind::busy}, LogLevel::info, "DDC monitor busy (null message)",
         "Null message: the monitor is busy"},
        {badChecksum, {Kind::rejected}, LogLevel::error,
         "DDC response checksum mismatch: expected 242, got 243",
         "Checksum mismatch: expected 242, got 243. Response: " + hexDump(badChecksum)},
        {everythingWrong, {Kind::rejected}, LogLevel::error,
         "DDC response checksum mismatch: expected 240, got 241",
         "Checksum mismatch: expected 240, got 241. Response: " + hexDump(everythingWrong)},
        {padded, {Kind::rejected}, LogLevel::error, "DDC wrong reply source: expected 0x6E, got 0x62",
         "Wrong reply source: " + hexDump(padded)},
        {replyWith(1, 0x84), {Kind::rejected}, LogLevel::error,
         "DDC wrong reply length: expected 0x88, got 0x84",
         "Wrong reply length: " + hexDump(replyWith(1, 0x84))},
        {replyWith(2, 0xAB), {Kind::rejected}, LogLevel::error,
         "DDC wrong response type: expected 0x02, got 0xAB",
         "Wrong response type: 6E 88 AB 00 10 00 00 64 00 32 5B"},
        {replyWith(4, 0x62), {Kind::rejected}, LogLevel::error, "DDC reply for VCP 0x10 echoed 0x62",
         "Reply for VCP 0x10 echoed 0x62: " + hexDump(replyWith(4, 0x62))},
        {replyWith(3, 0x01), {Kind::unsupported}, LogLevel::info,
         "DDC VCP code not supported by display (status: 1)", "VCP code unsupported (status=1)"},
        {replyWith(3, 0x07), {Kind::rejected}, LogLevel::error, "DDC unknown result code 0x07",
         "Unknown result code: " + hexDump(replyWith(3, 0x07))},
    };
    for (const auto& c : cases) {
        const auto before = systemLog->entries().size();
        EXPECT_EQ(parseVCPReply(c.reply, 0x10), c.parsed) << hexDump(c.reply);
        const auto entries = systemLog->entries();
        if (c.systemLine.empty()) {
            EXPECT_EQ(entries.size(), before) << hexDump(c.reply);
            continue;
        }
        ASSERT_EQ(entries.size(), before + 1) << hexDump(c.reply);
        EXPECT_EQ(entries.back().category, "DDC");
        EXPECT_EQ(entries.back().level, c.level) << c.systemLine;
        EXPECT_EQ(entries.back().message, c.systemLine);
    }

    const std::string file = test::readFile(dir / "Panelwright.log");
    DiagnosticLog::resetForTesting();
    std::size_t lines = 0, logged = 0;
    for (std::size_t at = 0; (at = file.find("] [DDC] ", at)) != std::string::npos; ++at)
        ++lines;
    for (const auto& c : cases) {
        if (c.fileLine.empty()) continue;
        ++logged;
        EXPECT_NE(file.find("] [DDC] " + c.fileLine + "\n"), std::string::npos) << c.fileLine;
    }
    EXPECT_EQ(lines, logged); // nothing else, in particular not the short buffer
}

} // namespace
} // namespace pw::ddc
