#include "platform/sim/SimDisplayServices.h"

#include <algorithm>

namespace pw::sim {

void SimDisplayServices::add(DisplaySpec display) {
    std::lock_guard lock(mutex_);
    displays_.push_back(std::move(display));
}

bool SimDisplayServices::remove(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto erased = std::erase_if(displays_, [id](const auto& d) { return d.id == id; });
    return erased > 0;
}

std::vector<DisplaySpec> SimDisplayServices::active() const {
    std::lock_guard lock(mutex_);
    return displays_;
}

const DisplaySpec* SimDisplayServices::find(platform::DisplayID id) const {
    const auto found = std::find_if(displays_.begin(), displays_.end(),
                                    [id](const auto& d) { return d.id == id; });
    return found == displays_.end() ? nullptr : &*found;
}

std::vector<platform::DisplayID> SimDisplayServices::activeDisplayList(std::uint32_t maxDisplays) {
    std::lock_guard lock(mutex_);
    std::vector<platform::DisplayID> ids;
    for (const auto& d : displays_) {
        if (ids.size() >= maxDisplays) break;
        ids.push_back(d.id);
    }
    return ids;
}

// A display the system does not know (any more) reads as zeros, as the system's own
// calls answer for an unknown display number.
bool SimDisplayServices::isBuiltin(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    return d && d->builtin;
}

std::uint32_t SimDisplayServices::vendorNumber(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    return d ? d->vendor : 0;
}

std::uint32_t SimDisplayServices::modelNumber(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    return d ? d->model : 0;
}

std::uint32_t SimDisplayServices::serialNumber(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    return d ? d->serial : 0;
}

std::optional<platform::ProductNameMap> SimDisplayServices::productNames(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    if (!d) return std::nullopt;
    if (d->productNamesWrongType) return platform::ProductNameMap{{}, true};
    // The names stand as given; the scenario loader is what fills in "en_US" from `name`.
    if (d->productNames.empty()) return std::nullopt;
    return platform::ProductNameMap{d->productNames, false};
}

std::int32_t SimDisplayServices::displayServicesGetBrightness(platform::DisplayID id,
                                                              float& brightness) {
    std::lock_guard lock(mutex_);
    const auto* d = find(id);
    if (!d || !(d->builtin || d->appleDisplay)) return kNotSupported;
    brightness = 0.75f;
    return 0;
}

std::vector<platform::Screen> SimDisplayServices::screens() {
    std::lock_guard lock(mutex_);
    std::vector<platform::Screen> screens;
    for (const auto& d : displays_) {
        screens.push_back(
            platform::Screen{d.id, d.screenName.value_or(d.name.value_or("")), d.frame, std::nullopt,
                             d.builtin});
    }
    return screens;
}


platform::Point SimDisplayServices::pointerLocation() {
    std::lock_guard lock(mutex_);
    return pointer_;
}

void SimDisplayServices::setPointer(platform::Point location) {
    std::lock_guard lock(mutex_);
    pointer_ = location;
}

bool SimDisplayServices::movePointerTo(platform::DisplayID id) {
    std::lock_guard lock(mutex_);
    const auto* display = find(id);
    if (!display) return false;
    pointer_ = {display->frame.midX(), display->frame.y + display->frame.height / 2};
    return true;
}

} // namespace pw::sim
