#include "platform/linux/desktop/DisplayPairing.h"

#include "platform/Edid.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {

// "card0-DP-1" -> "DP-1": the kernel names connectors after their card, compositors do not.
std::string withoutCard(const std::string& name) {
    if (!name.starts_with("card")) return name;
    std::size_t i = 4;
    while (i < name.size() && name[i] >= '0' && name[i] <= '9')
        ++i;
    if (i == 4 || i >= name.size() || name[i] != '-') return name;
    return name.substr(i + 1);
}

} // namespace

std::vector<std::optional<platform::DisplayID>> pairOutputs(const std::vector<OutputIdentity>& outputs,
                                                          const DisplaySource& source) {
    std::vector<std::optional<platform::DisplayID>> paired(outputs.size());
    if (!source.displays) return paired;
    const auto ids = source.displays();

    struct Known {
        platform::DisplayID id;
        std::vector<std::uint8_t> edid;
        std::optional<std::uint32_t> connector;
        std::optional<std::string> connectorName;
        bool taken = false;
    };
    std::vector<Known> known;
    for (const auto id : ids) {
        Known entry{id, {}, std::nullopt, std::nullopt};
        if (source.edid)
            if (auto edid = source.edid(id)) entry.edid = std::move(*edid);
        if (source.connectorId) entry.connector = source.connectorId(id);
        if (source.connectorName)
            if (auto name = source.connectorName(id)) entry.connectorName = withoutCard(*name);
        known.push_back(std::move(entry));
    }

    auto claim = [&](std::size_t output, auto&& matches) {
        if (paired[output]) return;
        for (auto& display : known) {
            if (display.taken || !matches(display)) continue;
            display.taken = true;
            paired[output] = display.id;
            return;
        }
    };
    for (std::size_t i = 0; i < outputs.size(); ++i)
        claim(i, [&](const Known& display) {
            return outputs[i].connectorId && display.connector &&
                   *outputs[i].connectorId == *display.connector;
        });
    auto sameName = [&](std::size_t output, const Known& display) {
        return outputs[output].connectorName && display.connectorName &&
               *outputs[output].connectorName == *display.connectorName;
    };
    for (std::size_t i = 0; i < outputs.size(); ++i)
        claim(i, [&](const Known& display) { return sameName(i, display); });
    for (std::size_t i = 0; i < outputs.size(); ++i)
        claim(i, [&](const Known& display) { return platform::sameBaseBlock(outputs[i].edid, display.edid); });
    const bool namedOtherwise = outputs.size() == 1 && known.size() == 1 &&
                                outputs[0].connectorName && known[0].connectorName &&
                                !sameName(0, known[0]);
    if (outputs.size() == 1 && known.size() == 1 && !paired[0] && outputs[0].edid.empty() &&
        !known[0].taken && !namedOtherwise)
        paired[0] = known[0].id;
    return paired;
}

} // namespace pw::linuxdesktop
