#include "display/EdidName.h"

#include <array>
#include <vector>

namespace pw {

namespace {

constexpr std::size_t kBaseBlockSize = 128;
constexpr std::array<std::size_t, 4> kDescriptorOffsets = {54, 72, 90, 108};
constexpr std::uint8_t kProductNameTag = 0xFC;
constexpr std::size_t kDescriptorTextStart = 5;
constexpr std::size_t kDescriptorTextLength = 13;

std::optional<std::uint8_t> hexDigit(char c) {
    if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
    return std::nullopt;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Text of one descriptor when it is a non-empty product name.
std::optional<std::string> descriptorName(const std::vector<std::uint8_t>& bytes,
                                          std::size_t offset) {
    if (bytes[offset] != 0 || bytes[offset + 1] != 0 || bytes[offset + 3] != kProductNameTag) {
        return std::nullopt;
    }
    std::string text;
    for (std::size_t i = 0; i < kDescriptorTextLength; ++i) {
        const std::uint8_t byte = bytes[offset + kDescriptorTextStart + i];
        if (byte == 0x0A) break;
        if (byte > 0x7F) return std::nullopt; // not ASCII: not a name we can show
        text.push_back(static_cast<char>(byte));
    }
    return displayNameFrom(text);
}

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7F;
}

} // namespace

std::optional<std::string> displayNameFrom(std::string_view raw) {
    std::string text;
    text.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        const auto c = static_cast<unsigned char>(raw[i]);
        if (isControl(c)) continue;
        // U+0080..U+009F in UTF-8: the second set of control characters.
        if (c == 0xC2 && i + 1 < raw.size()) {
            const auto next = static_cast<unsigned char>(raw[i + 1]);
            if (next >= 0x80 && next <= 0x9F) {
                ++i;
                continue;
            }
        }
        text.push_back(static_cast<char>(c));
    }
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && isSpace(text[first]))
        ++first;
    while (last > first && isSpace(text[last - 1]))
        --last;
    if (first == last) return std::nullopt;
    return text.substr(first, last - first);
}

std::optional<std::string> nameFromEDID(std::string_view hex) {
    if (hex.size() < 2 * kBaseBlockSize) return std::nullopt;

    // Damaged text is refused whole: skipping a bad pair would shift every later byte
    // and read a name out of the wrong place.
    if (hex.size() % 2 != 0) return std::nullopt;
    std::vector<std::uint8_t> bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const auto high = hexDigit(hex[i]);
        const auto low = hexDigit(hex[i + 1]);
        if (!high || !low) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    }

    for (const std::size_t offset : kDescriptorOffsets) {
        if (bytes.size() <= offset + 17) continue;
        if (auto name = descriptorName(bytes, offset)) return name;
    }
    return std::nullopt;
}

std::optional<EdidIdentity> edidIdentity(std::span<const std::uint8_t> edid) {
    static constexpr std::array<std::uint8_t, 8> kHeader = {0x00, 0xFF, 0xFF, 0xFF,
                                                            0xFF, 0xFF, 0xFF, 0x00};
    if (edid.size() < kBaseBlockSize) return std::nullopt;
    for (std::size_t i = 0; i < kHeader.size(); ++i) {
        if (edid[i] != kHeader[i]) return std::nullopt;
    }
    unsigned sum = 0;
    for (std::size_t i = 0; i < kBaseBlockSize; ++i)
        sum += edid[i];
    if (sum % 256 != 0) return std::nullopt;

    EdidIdentity identity;
    identity.vendor = static_cast<std::uint32_t>(edid[8]) << 8 | edid[9];
    identity.product = static_cast<std::uint32_t>(edid[10]) | static_cast<std::uint32_t>(edid[11])
                                                                  << 8;
    identity.serial =
        static_cast<std::uint32_t>(edid[12]) | static_cast<std::uint32_t>(edid[13]) << 8 |
        static_cast<std::uint32_t>(edid[14]) << 16 | static_cast<std::uint32_t>(edid[15]) << 24;
    return identity;
}

} // namespace pw
