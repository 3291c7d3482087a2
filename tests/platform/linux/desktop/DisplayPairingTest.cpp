#include "platform/linux/desktop/DisplayPairing.h"

#include "DesktopTestSupport.h"

#include <gtest/gtest.h>

#include <map>

namespace pw::linuxdesktop {
namespace {

using test::fakeEdid;

struct Machine {
    std::vector<platform::DisplayID> ids;
    std::map<platform::DisplayID, std::vector<std::uint8_t>> edids;
    std::map<platform::DisplayID, std::uint32_t> connectors;

    DisplaySource source() const {
        return DisplaySource{
            [this] { return ids; },
            [this](platform::DisplayID id) -> std::optional<std::vector<std::uint8_t>> {
                if (!edids.contains(id)) return std::nullopt;
                return edids.at(id);
            },
            [this](platform::DisplayID id) -> std::optional<std::uint32_t> {
                if (!connectors.contains(id)) return std::nullopt;
                return connectors.at(id);
            }};
    }
};

using Paired = std::vector<std::optional<platform::DisplayID>>;

TEST(DisplayPairing, EdidPairsRegardlessOfOrderAndExtensionBlocks) {
    Machine machine{{10, 20}, {{10, fakeEdid(1)}, {20, fakeEdid(2)}}, {}};
    auto withExtension = fakeEdid(1);
    withExtension.resize(256, 0x42); // the server may show extension blocks the other side lacks
    const std::vector<OutputIdentity> outputs{{"DP-1", fakeEdid(2), {}}, {"HDMI-1", withExtension, {}}};
    EXPECT_EQ(pairOutputs(outputs, machine.source()), (Paired{20, 10}));
}

TEST(DisplayPairing, ConnectorIdWinsOverIdenticalEdids) {
    // Two monitors of one model that do not tell themselves apart: the connector decides.
    Machine machine{{10, 20}, {{10, fakeEdid(1)}, {20, fakeEdid(1)}}, {{10, 71}, {20, 70}}};
    const std::vector<OutputIdentity> outputs{{"DP-1", fakeEdid(1), 70}, {"DP-2", fakeEdid(1), 71}};
    EXPECT_EQ(pairOutputs(outputs, machine.source()), (Paired{20, 10}));

    // Without connector ids they are paired in order, each display once.
    machine.connectors.clear();
    EXPECT_EQ(pairOutputs(outputs, machine.source()), (Paired{10, 20}));
}

TEST(DisplayPairing, LoneOutputWithoutEdidIsTheLoneDisplay) {
    Machine machine{{5}, {{5, fakeEdid(1)}}, {}};
    EXPECT_EQ(pairOutputs({{"screen", {}, {}}}, machine.source()), (Paired{5}));

    // Not when it shows an EDID that differs, nor when there is more than one candidate.
    EXPECT_EQ(pairOutputs({{"HDMI-1", fakeEdid(9), {}}}, machine.source()), (Paired{std::nullopt}));
    machine.ids = {5, 6};
    EXPECT_EQ(pairOutputs({{"screen", {}, {}}}, machine.source()), (Paired{std::nullopt}));
    // A truncated EDID matches nothing.
    machine.ids = {5};
    EXPECT_EQ(pairOutputs({{"HDMI-1", std::vector<std::uint8_t>(64, 0)}, {"DP-1", {}, {}}},
                          machine.source()),
              (Paired{std::nullopt, std::nullopt}));
}

TEST(DisplayPairing, NoSourceGivesNothing) {
    EXPECT_EQ(pairOutputs({{"screen", {}, {}}}, DisplaySource{}), (Paired{std::nullopt}));
}

} // namespace
} // namespace pw::linuxdesktop
