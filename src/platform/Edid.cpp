#include "platform/Edid.h"

#include <algorithm>
#include <array>

namespace pw::platform {

namespace {

constexpr std::size_t kBlock = 128;
constexpr std::array<std::uint8_t, 8> kHeader = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
constexpr std::array<std::size_t, 4> kDescriptors = {54, 72, 90, 108};
constexpr std::uint8_t kNameTag = 0xFC;
constexpr std::size_t kTextStart = 5;
constexpr std::size_t kTextLength = 13;

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Text of one descriptor when it is a non-empty product name.
std::optional<std::string> descriptorName(std::span<const std::uint8_t> block, std::size_t at) {
    if (block[at] != 0 || block[at + 1] != 0 || block[at + 3] != kNameTag) return std::nullopt;
    std::string text;
    for (std::size_t i = 0; i < kTextLength; ++i) {
        const std::uint8_t byte = block[at + kTextStart + i];
        if (byte == 0x0A) break;
        if (byte > 0x7F) return std::nullopt; // not ASCII: not a name we can show
        text.push_back(static_cast<char>(byte));
    }
    return displayNameFrom(text);
}

} // namespace

Edid Edid::parse(std::span<const std::uint8_t> bytes) {
    Edid edid;
    edid.bytes.assign(bytes.begin(), bytes.end());
    if (bytes.size() < kBlock) return edid;
    const auto block = bytes.first(kBlock);

    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const auto byte : block)
        hash = (hash ^ byte) * 0x100000001b3ull;
    edid.baseBlockHash = hash;

    for (const auto at : kDescriptors)
        if ((edid.name = descriptorName(block, at))) break;

    if (!std::equal(kHeader.begin(), kHeader.end(), block.begin())) return edid;
    std::uint8_t sum = 0;
    for (const auto byte : block)
        sum = static_cast<std::uint8_t>(sum + byte);
    if (sum != 0) return edid;

    edid.valid = true;
    edid.vendor = (std::uint32_t{block[8]} << 8) | block[9];
    edid.product = block[10] | (std::uint32_t{block[11]} << 8);
    for (std::size_t i = 0; i < 4; ++i)
        edid.serial |= std::uint32_t{block[12 + i]} << (8 * i);
    edid.week = block[16];
    edid.year = 1990u + block[17];
    return edid;
}

bool Edid::complete() const {
    return bytes.size() >= kBlock;
}

bool Edid::sameBaseBlock(const Edid& other) const {
    return platform::sameBaseBlock(bytes, other.bytes);
}

bool sameBaseBlock(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
    return a.size() >= kBlock && b.size() >= kBlock &&
           std::equal(a.begin(), a.begin() + kBlock, b.begin());
}

std::optional<std::string> displayNameFrom(std::string_view raw) {
    std::string text;
    text.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        const auto c = static_cast<unsigned char>(raw[i]);
        if (c < 0x20 || c == 0x7F) continue;
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

} // namespace pw::platform
