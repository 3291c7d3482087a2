#include "platform/drm/DrmSysfs.h"

#include <array>
#include <string_view>

namespace pw::platform {

std::string DrmConnector::type() const {
    // "card0-HDMI-A-1": after the card's dash, up to the last dash.
    const auto first = name.find('-');
    const auto last = name.rfind('-');
    if (first == std::string::npos || last == first) return {};
    return name.substr(first + 1, last - first - 1);
}

bool DrmConnector::builtin() const {
    static constexpr std::array<std::string_view, 3> kPanels = {"eDP", "LVDS", "DSI"};
    const auto kind = type();
    for (const auto panel : kPanels)
        if (kind == panel) return true;
    return false;
}

} // namespace pw::platform
