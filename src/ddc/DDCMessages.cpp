#include "ddc/DDCMessages.h"

#include "base/DiagnosticLog.h"
#include "base/SystemLog.h"
#include "support/Hex.h"

#include <string_view>

namespace pw::ddc {

namespace {

// Every request checksum starts from the destination and source addresses.
constexpr std::uint8_t kRequestSeed = kDisplayWriteAddress ^ kHostSourceAddress; // 0x3F

std::string decimal(std::uint8_t value) {
    return std::to_string(static_cast<unsigned>(value));
}

std::string hexByte(std::uint8_t value) {
    return "0x" + hex(value, 2);
}

// A rejected reply goes to the system log for whoever watches the console and to the
// diagnostic file, which users attach to bug reports; the two texts differ on purpose.
void reject(platform::LogLevel level, std::string_view systemMessage,
            std::string_view fileMessage) {
    SystemLog::ddc().write(level, systemMessage);
    DiagnosticLog::log("DDC", fileMessage);
}

} // namespace

std::array<std::uint8_t, 4> makeGetVCPRequest(std::uint8_t code) {
    constexpr std::uint8_t length = kLengthFlag | 2;
    const auto checksum = static_cast<std::uint8_t>(kRequestSeed ^ length ^ kGetVCPOpcode ^ code);
    return {length, kGetVCPOpcode, code, checksum};
}

std::array<std::uint8_t, 6> makeSetVCPRequest(std::uint8_t code, std::uint16_t value) {
    constexpr std::uint8_t length = kLengthFlag | 4;
    const auto high = static_cast<std::uint8_t>(value >> 8);
    const auto low = static_cast<std::uint8_t>(value & 0xFF);
    const auto checksum =
        static_cast<std::uint8_t>(kRequestSeed ^ length ^ kSetVCPOpcode ^ code ^ high ^ low);
    return {length, kSetVCPOpcode, code, high, low, checksum};
}

VCPReply parseVCPReply(std::span<const std::uint8_t> buffer, std::uint8_t requestedCode) {
    using Kind = VCPReply::Kind;
    constexpr std::uint8_t kReplyLengthByte = kLengthFlag | (kReplyLength - 3);
    // A busy monitor answers with the null message (no payload) whatever it was asked;
    // the rest of the buffer is whatever the bus pads it with.
    if (buffer.size() >= 3 && buffer[0] == kDisplayWriteAddress && buffer[1] == kLengthFlag &&
        buffer[2] == kNullMessageChecksum) {
        reject(platform::LogLevel::info, "DDC monitor busy (null message)",
               "Null message: the monitor is busy");
        return {Kind::busy};
    }
    // A short buffer is what a failed or truncated read leaves behind; the transport
    // layer already knows about it, so it is not worth a log line here.
    if (buffer.size() < kReplyLength) return {Kind::rejected};
    const auto reply = buffer.first(kReplyLength);

    std::uint8_t expected = kHostReplyAddress;
    for (std::size_t i = 0; i + 1 < reply.size(); ++i)
        expected ^= reply[i];
    const std::uint8_t got = reply.back();
    if (expected != got) {
        reject(platform::LogLevel::error,
               "DDC response checksum mismatch: expected " + decimal(expected) + ", got " +
                   decimal(got),
               "Checksum mismatch: expected " + decimal(expected) + ", got " + decimal(got) +
                   ". Response: " + hexDump(reply));
        return {Kind::rejected};
    }

    // A bus that returns fewer bytes than asked pads the rest (0xFF on many adapters), and
    // an XOR checksum over the padded frame can still come out right: the framing bytes
    // are what tell such a frame from a reply.
    struct Framing {
        std::size_t offset;
        std::uint8_t expected;
        const char* what;
    };
    for (const Framing& f : {Framing{0, kDisplayWriteAddress, "reply source"},
                             Framing{1, kReplyLengthByte, "reply length"},
                             Framing{2, kGetVCPReplyOpcode, "response type"}}) {
        if (reply[f.offset] == f.expected) continue;
        reject(platform::LogLevel::error,
               std::string("DDC wrong ") + f.what + ": expected " + hexByte(f.expected) +
                   ", got " + hexByte(reply[f.offset]),
               std::string("Wrong ") + f.what + ": " + hexDump(reply));
        return {Kind::rejected};
    }
    // The answer to another request (a late reply, another program's question) says
    // nothing about this code, neither its value nor whether the monitor has it.
    if (reply[4] != requestedCode) {
        reject(platform::LogLevel::error,
               "DDC reply for VCP " + hexByte(requestedCode) + " echoed " + hexByte(reply[4]),
               "Reply for VCP " + hexByte(requestedCode) + " echoed " + hexByte(reply[4]) +
                   ": " + hexDump(reply));
        return {Kind::rejected};
    }

    // A monitor that lacks a feature says so politely; that is expected, not an error.
    constexpr std::uint8_t kResultUnsupported = 0x01;
    if (const std::uint8_t status = reply[3]; status == kResultUnsupported) {
        reject(platform::LogLevel::info,
               "DDC VCP code not supported by display (status: " + decimal(status) + ")",
               "VCP code unsupported (status=" + decimal(status) + ")");
        return {Kind::unsupported};
    } else if (status != 0x00) {
        reject(platform::LogLevel::error, "DDC unknown result code " + hexByte(status),
               "Unknown result code: " + hexDump(reply));
        return {Kind::rejected};
    }

    VCPReply result{Kind::value};
    result.value.max = static_cast<std::uint16_t>((reply[6] << 8) | reply[7]);
    result.value.current = static_cast<std::uint16_t>((reply[8] << 8) | reply[9]);
    return result;
}

std::string hexDump(std::span<const std::uint8_t> bytes) {
    return hexBytes(bytes);
}

} // namespace pw::ddc
