#include "platform/DrmDisplayServices.h"

#include "platform/EdidFacts.h"

namespace pw::platform {

DrmDisplayServices::DrmDisplayServices(std::shared_ptr<DrmSysfs> drm,
                                       std::shared_ptr<Screens> screens)
    : drm_(std::move(drm)), screens_(std::move(screens)) {}

std::vector<DisplayID> DrmDisplayServices::activeDisplayList(std::uint32_t maxDisplays) {
    auto all = drm_ ? drm_->connectors() : std::vector<DrmConnector>();
    std::vector<DisplayID> ids;
    std::lock_guard lock(mutex_);
    connected_.clear();
    for (auto& connector : all) {
        if (!connector.connected() || ids.size() >= maxDisplays) continue;
        ids.push_back(connector.id);
        connected_[connector.id] = std::move(connector);
    }
    return ids;
}

std::optional<DrmConnector> DrmDisplayServices::connector(DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto found = connected_.find(id);
    if (found == connected_.end()) return std::nullopt;
    return found->second;
}

bool DrmDisplayServices::isBuiltin(DisplayID id) {
    const auto found = connector(id);
    return found && found->builtin();
}

std::uint32_t DrmDisplayServices::vendorNumber(DisplayID id) {
    const auto found = connector(id);
    const auto facts = found ? readEdidFacts(found->edid) : std::nullopt;
    return facts ? facts->vendor : 0;
}

std::uint32_t DrmDisplayServices::modelNumber(DisplayID id) {
    const auto found = connector(id);
    const auto facts = found ? readEdidFacts(found->edid) : std::nullopt;
    return facts ? facts->model : 0;
}

std::uint32_t DrmDisplayServices::serialNumber(DisplayID id) {
    const auto found = connector(id);
    const auto facts = found ? readEdidFacts(found->edid) : std::nullopt;
    return facts ? facts->serial : 0;
}

std::optional<ProductNameMap> DrmDisplayServices::productNames(DisplayID id) {
    const auto found = connector(id);
    const auto facts = found ? readEdidFacts(found->edid) : std::nullopt;
    if (!facts || !facts->name) return std::nullopt;
    return ProductNameMap{{{"en_US", *facts->name}}, false};
}

std::int32_t DrmDisplayServices::displayServicesGetBrightness(DisplayID, float&) {
    return -1;
}

std::vector<Screen> DrmDisplayServices::screens() {
    return screens_ ? screens_->screens() : std::vector<Screen>();
}

Point DrmDisplayServices::pointerLocation() {
    return screens_ ? screens_->pointerLocation() : Point{};
}

} // namespace pw::platform
