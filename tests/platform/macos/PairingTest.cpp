#include "platform/macos/MacPairing.h"

#include <gtest/gtest.h>

namespace pw::macos {
namespace {

using Identity = DisplayIdentity;
using Pairing = std::vector<std::optional<std::size_t>>;

DisplayTransportMatch channel(std::uint32_t vendor, std::uint32_t product, std::uint32_t serial,
                              std::vector<std::uint8_t> edid = {}) {
    return {nullptr, std::move(edid), vendor, product, serial, 0, {}};
}

TEST(TransportPairing, ScoresWeighIdentityAndEdidBytes) {
    const Identity dell{2, 0x10AC, 0xA0E8, 777};
    const std::pair<DisplayTransportMatch, int> cases[] = {
        {channel(0x10AC, 0xA0E8, 0), 6},
        {channel(0x10AC, 0xA0E8, 777), 11},
        {channel(0x10AC, 1, 777), 8},
        {channel(1, 0xA0E8, 0), 3},
        {channel(1, 2, 0), 0},
        {channel(0, 0xA0E8, 777), 0}, // vendor unknown
        {channel(0, 0, 0, {0x10, 0xAC, 0xA0, 0xE8, 0xFF}), 4},
        {channel(0, 0, 0, {0x00, 0x00, 0xA0, 0xE8}), 2},
        {channel(0, 0, 0, {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}), 0},
        {channel(0, 0, 0, {0x10}), 0}, // too short to name a vendor
    };
    for (const auto& [candidate, score] : cases)
        EXPECT_EQ(scoreTransport(candidate, dell), score) << candidate.edid.size();
}

TEST(TransportPairing, EveryDisplayGetsItsOwnChannelOrNone) {
    // Twins with serials, listed by the system in the opposite order to the registry.
    EXPECT_EQ(pairTransports({{3, 5, 6, 222}, {2, 5, 6, 111}},
                                             {channel(5, 6, 111), channel(5, 6, 222)}),
              (Pairing{1, 0}));
    // Byte-identical twins pair in order; a third has no channel of its own and gets none.
    EXPECT_EQ(pairTransports({{4, 5, 6, 0}, {5, 5, 6, 0}, {6, 5, 6, 0}},
                                             {channel(5, 6, 0), channel(5, 6, 0)}),
              (Pairing{0, 1, std::nullopt}));
    // A later display with a better fit (its serial) takes that channel first.
    EXPECT_EQ(pairTransports({{1, 5, 6, 0}, {2, 5, 6, 42}},
                                             {channel(5, 6, 42), channel(5, 6, 0)}),
              (Pairing{1, 0}));
    // Another model, another serial or an unknown EDID never names the display.
    EXPECT_EQ(pairTransports(
                  {{1, 5, 6, 9}}, {channel(5, 7, 9), channel(5, 6, 8), channel(0, 0, 0)}),
              (Pairing{std::nullopt}));
}

} // namespace
} // namespace pw::macos
