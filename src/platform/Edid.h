#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pw::platform {

// A monitor's EDID, parsed once from its bytes and carried with them.
struct Edid {
    std::vector<std::uint8_t> bytes;
    // The base block has the fixed header and its bytes sum to 0 mod 256: only then are
    // vendor, product, serial, week and year known (0 otherwise), so that a damaged block
    // gives no identity rather than a wrong one.
    bool valid = false;
    std::uint32_t vendor = 0;  // manufacturer id, big-endian as in the block
    std::uint32_t product = 0; // product code
    std::uint32_t serial = 0;
    std::uint32_t week = 0;
    std::uint32_t year = 0;    // 1990 + the block's year byte
    // The first product-name descriptor (tag 0xFC) of a whole base block whose text, cut
    // at the first line feed, ASCII only, control characters dropped and trimmed, is not
    // empty. Read whether or not the block is valid.
    std::optional<std::string> name;
    // FNV-1a of the 128-byte base block; 0 for fewer bytes. Equal for the same monitor.
    std::uint64_t baseBlockHash = 0;

    static Edid parse(std::span<const std::uint8_t> bytes);
    // The whole base block is there (128 bytes or more).
    bool complete() const;
    // Same base block as `other`.
    bool sameBaseBlock(const Edid& other) const;
};

// Two EDIDs with the same whole base block: the same monitor, however its extension
// blocks differ.
bool sameBaseBlock(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b);

// A name fit to show and to build settings keys from: control characters (C0, DEL, and
// C1 in UTF-8) removed, surrounding white space trimmed; nothing when nothing is left.
std::optional<std::string> displayNameFrom(std::string_view raw);

} // namespace pw::platform
