#include "platform/EdidFacts.h"

#include <array>

namespace pw::platform {

namespace {

constexpr std::size_t kBlock = 128;
constexpr std::array<std::uint8_t, 8> kHeader = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
constexpr std::array<std::size_t, 4> kDescriptors = {54, 72, 90, 108};
constexpr std::uint8_t kNameTag = 0xFC;

} // namespace

std::optional<EdidFacts> readEdidFacts(std::span<const std::uint8_t> edid) {
    if (edid.size() < kBlock) return std::nullopt;
    for (std::size_t i = 0; i < kHeader.size(); ++i)
        if (edid[i] != kHeader[i]) return std::nullopt;
    std::uint8_t sum = 0;
    for (std::size_t i = 0; i < kBlock; ++i)
        sum = static_cast<std::uint8_t>(sum + edid[i]);
    if (sum != 0) return std::nullopt;

    EdidFacts facts;
    facts.vendor = (std::uint32_t{edid[8]} << 8) | edid[9];
    facts.model = edid[10] | (std::uint32_t{edid[11]} << 8);
    for (std::size_t i = 0; i < 4; ++i)
        facts.serial |= std::uint32_t{edid[12 + i]} << (8 * i);

    // Display descriptors start with three zero bytes and their tag; the text is up to
    // 13 bytes, ended by a line feed.
    for (const auto at : kDescriptors) {
        if (edid[at] != 0 || edid[at + 1] != 0 || edid[at + 2] != 0 || edid[at + 3] != kNameTag)
            continue;
        std::string text;
        for (std::size_t i = at + 5; i < at + 18 && edid[i] != '\n'; ++i) {
            const auto c = edid[i];
            if (c < 0x20 || c > 0x7E) return facts; // not text: no name
            text.push_back(static_cast<char>(c));
        }
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        if (!text.empty()) facts.name = text;
        break;
    }
    return facts;
}

} // namespace pw::platform
