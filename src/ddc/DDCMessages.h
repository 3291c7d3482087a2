#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ddc/VCP.h"

// Byte layout of the DDC/CI requests the program sends and of the reply it reads.
namespace pw::ddc {

inline constexpr std::uint8_t kDisplayAddress = 0x37;      // 7-bit chip address
inline constexpr std::uint8_t kDisplayWriteAddress = 0x6E; // destination; request checksum seed
inline constexpr std::uint8_t kHostSourceAddress = 0x51;   // data address of transport calls
inline constexpr std::uint8_t kHostReplyAddress = 0x50;    // reply checksum seed
inline constexpr std::uint8_t kLengthFlag = 0x80;
inline constexpr std::uint8_t kGetVCPOpcode = 0x01;
inline constexpr std::uint8_t kGetVCPReplyOpcode = 0x02;
inline constexpr std::uint8_t kSetVCPOpcode = 0x03;
inline constexpr std::uint32_t kReplyLength = 11;
inline constexpr std::uint8_t kNullMessageChecksum = 0xBE; // 0x50 ^ 0x6E ^ 0x80
// How long a monitor must be left alone after a Set VCP Feature before the next message;
// many monitors drop or garble what comes sooner.
inline constexpr std::chrono::milliseconds kQuietTimeAfterWrite{50};

// 82 01 code checksum
std::array<std::uint8_t, 4> makeGetVCPRequest(std::uint8_t code);
// 84 03 code hi lo checksum
std::array<std::uint8_t, 6> makeSetVCPRequest(std::uint8_t code, std::uint16_t value);

// What one buffer read back after a Get VCP Feature request turned out to be.
struct VCPReply {
    enum class Kind {
        value,       // a sound reply for the code asked for: `value` holds it
        unsupported, // a sound reply saying the monitor lacks the feature (result code 0x01)
        busy,        // the null message: the monitor has nothing to say yet, ask again
        rejected,    // anything else: short, damaged, padded, or the answer to another question
    };
    Kind kind = Kind::rejected;
    DDCReadResult value{};
    friend bool operator==(const VCPReply&, const VCPReply&) = default;
};

// Checks and decodes an 11-byte Get VCP Feature reply to a request for `requestedCode`:
// checksum, source address, length byte, reply opcode, echoed code and result code.
// Rejections are reported to the system log and the diagnostic log, category "DDC"; a
// short buffer is rejected silently. Bytes after the 11 the length byte announces are
// not part of the reply.
VCPReply parseVCPReply(std::span<const std::uint8_t> reply, std::uint8_t requestedCode);

// "6E 88 02 ..." : every byte as two upper-case hex digits, single spaces between.
std::string hexDump(std::span<const std::uint8_t> bytes);


} // namespace pw::ddc
