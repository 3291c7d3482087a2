#pragma once

#include <array>
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

// 82 01 code checksum
std::array<std::uint8_t, 4> makeGetVCPRequest(std::uint8_t code);
// 84 03 code hi lo checksum
std::array<std::uint8_t, 6> makeSetVCPRequest(std::uint8_t code, std::uint16_t value);

// Checks and decodes an 11-byte Get VCP Feature reply. Rejections (checksum, reply
// opcode, result code) are reported to the system log and the diagnostic log,
// category "DDC"; a short buffer is rejected silently.
std::optional<DDCReadResult> parseVCPReply(std::span<const std::uint8_t> reply);

// "6E 88 02 ..." : every byte as two upper-case hex digits, single spaces between.
std::string hexDump(std::span<const std::uint8_t> bytes);

// The framebuffer I2C wire form: 0x51, the frame without its checksum, then
// 0x6E XOR every preceding byte. Empty for an empty frame.
std::vector<std::uint8_t> intelWireForm(std::span<const std::uint8_t> frame);

} // namespace pw::ddc
