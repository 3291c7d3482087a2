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
    std::map<platform::DisplayID, std::string> names = {};

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
            },
            [this](platform::DisplayID id) -> std::optional<std::string> {
                if (!names.contains(id)) return std::nullopt;
                return names.at(id);
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

TEST(DisplayPairing, ConnectorNamesPairWaylandOutputsWithoutTheKernelsCardPrefix) {
    // Identical monitors, listed in the other order: the names decide, not the EDID order.
    Machine machine{{10, 20}, {{10, fakeEdid(1)}, {20, fakeEdid(1)}}, {},
                    {{10, "card0-HDMI-A-1"}, {20, "card12-DP-1"}}};
    const std::vector<OutputIdentity> wayland{{"DP-1", fakeEdid(1), {}, "DP-1"},
                                              {"HDMI-A-1", fakeEdid(1), {}, "HDMI-A-1"}};
    EXPECT_EQ(pairOutputs(wayland, machine.source()), (Paired{20, 10}));

    // An X output's name is its driver's, never taken for a connector name.
    const std::vector<OutputIdentity> x{{"DP-1", fakeEdid(1), {}}, {"HDMI-A-1", fakeEdid(1), {}}};
    EXPECT_EQ(pairOutputs(x, machine.source()), (Paired{10, 20}));

    // A lone output without an EDID is not the lone display when their names differ.
    machine.ids = {10};
    EXPECT_EQ(pairOutputs({{"DP-2", {}, {}, "DP-2"}}, machine.source()), (Paired{std::nullopt}));
    EXPECT_EQ(pairOutputs({{"HDMI-A-1", {}, {}, "HDMI-A-1"}}, machine.source()), (Paired{10}));
    // "cardX-" that is not a card prefix stays part of the name.
    machine.names[10] = "cardX-HDMI-A-1";
    EXPECT_EQ(pairOutputs({{"HDMI-A-1", fakeEdid(5), {}, "HDMI-A-1"}}, machine.source()),
              (Paired{std::nullopt}));
}

TEST(DisplayPairing, NoSourceGivesNothing) {
    EXPECT_EQ(pairOutputs({{"screen", {}, {}}}, DisplaySource{}), (Paired{std::nullopt}));
}

} // namespace
} // namespace pw::linuxdesktop
