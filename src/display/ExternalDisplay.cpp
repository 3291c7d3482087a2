#include "display/ExternalDisplay.h"

#include "base/Preferences.h"
#include "platform/Platform.h"

#include <algorithm>

namespace pw {

std::string_view rawValue(DDCStatus status) {
    switch (status) {
    case DDCStatus::verified:
        return "verified";
    case DDCStatus::unverified:
        return "unverified";
    case DDCStatus::softwareOnly:
        return "softwareOnly";
    }
    return "unverified";
}

std::string_view label(DDCStatus status) {
    switch (status) {
    case DDCStatus::verified:
        return "DDC";
    case DDCStatus::unverified:
        return "DDC (unverified)";
    case DDCStatus::softwareOnly:
        return "Software";
    }
    return "DDC (unverified)";
}

std::optional<DDCStatus> ddcStatusFromRaw(std::string_view raw) {
    for (auto status : {DDCStatus::verified, DDCStatus::unverified, DDCStatus::softwareOnly}) {
        if (rawValue(status) == raw) return status;
    }
    return std::nullopt;
}

std::string ExternalDisplay::preferenceKey() const {
    return name + "+" + std::to_string(vendorID) + "+" + std::to_string(productID) + "@" +
           std::to_string(id);
}

std::string ExternalDisplay::displayTitle() const {
    return name.empty() ? "Display " + std::to_string(id) : name;
}

std::string displayTitle(const ExternalDisplay& display, const platform::UserDefaults& store) {
    // Reading does not change the store; its interface is simply not const-qualified.
    auto& readable = const_cast<platform::UserDefaults&>(store);
    return Preferences::friendlyName(readable, display.preferenceKey())
        .value_or(display.displayTitle());
}

std::string displayTitle(const ExternalDisplay& display) {
    return Preferences::friendlyName(display.preferenceKey()).value_or(display.displayTitle());
}

std::vector<ExternalDisplay> ddcCapableDisplays(const std::vector<ExternalDisplay>& displays) {
    std::vector<ExternalDisplay> capable;
    std::copy_if(displays.begin(), displays.end(), std::back_inserter(capable),
                 [](const ExternalDisplay& display) { return display.ddcSupported; });
    return capable;
}

} // namespace pw
