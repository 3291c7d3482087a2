#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace pw {

// The monitor's product name from its EDID given as hex text (two digits per byte):
// the first display-product-name descriptor (tag 0xFC) of the 128-byte base block
// whose text, cut at the first line feed and trimmed, is not empty. Nothing for text
// shorter than a whole base block (256 characters) or without such a descriptor, and
// nothing for damaged text (an odd length or any pair that is not two hex digits).
std::optional<std::string> nameFromEDID(std::string_view hex);

// A name fit to show and to build settings keys from: control characters (C0, DEL, and
// C1 in UTF-8) removed, surrounding white space trimmed; nothing when nothing is left.
std::optional<std::string> displayNameFrom(std::string_view raw);

// What the EDID base block says about the monitor: manufacturer ID (the big-endian
// packed letters, as the system reports a display's vendor number), product code
// and serial number.
struct EdidIdentity {
    std::uint32_t vendor = 0;
    std::uint32_t product = 0;
    std::uint32_t serial = 0;
};

// The identity of a valid EDID base block (fixed header, bytes summing to 0 mod 256),
// nothing for anything else.
std::optional<EdidIdentity> edidIdentity(std::span<const std::uint8_t> edid);

} // namespace pw
