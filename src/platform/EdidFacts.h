#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace pw::platform {

// What a machine learns of a monitor from its EDID base block, as the window system
// reports it: the manufacturer id (big-endian, as in the block), the product code and
// the serial number, and the product-name descriptor. A block that is short, has a bad
// header or a bad checksum gives nothing at all: such a monitor is listed without an
// identity rather than with a wrong one.
struct EdidFacts {
    std::uint32_t vendor = 0;
    std::uint32_t model = 0;
    std::uint32_t serial = 0;
    std::optional<std::string> name; // printable ASCII, trailing spaces dropped
};

std::optional<EdidFacts> readEdidFacts(std::span<const std::uint8_t> edid);

} // namespace pw::platform
