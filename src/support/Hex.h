#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// The one way the program writes numbers and bytes in hexadecimal: log lines, bus traces,
// registry keys and scenario messages all agree on digits and padding.
namespace pw {

enum class HexCase { upper, lower };

// `value` in at least `width` digits, zero-padded, without a prefix: hex(0x6E, 2) is "6E",
// hex(0x1E6D, 4, HexCase::lower) is "1e6d". A value wider than `width` keeps every digit.
std::string hex(std::uint64_t value, int width, HexCase letters = HexCase::upper);

// Every byte as two digits, `separator` between them: {0x6E, 0x51} is "6E 51".
std::string hexBytes(std::span<const std::uint8_t> bytes, std::string_view separator = " ",
                     HexCase letters = HexCase::upper);

} // namespace pw
