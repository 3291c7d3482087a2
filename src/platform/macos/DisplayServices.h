#pragma once

#include "platform/Screens.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pw::platform {

// The CoreDisplay info dictionary's "DisplayProductName" entry: locale -> name,
// in the dictionary's own order. `wrongType` is set when the entry exists but is
// not a map of strings (then `names` is empty).
struct ProductNameMap {
    std::vector<std::pair<std::string, std::string>> names;
    bool wrongType = false;
};

// The Mac window server's view of the displays: the active list and each display's
// identity. Screens and the pointer are the seam's `Screens` (NSScreen, NSEvent).
class DisplayServices {
public:
    virtual ~DisplayServices() = default;

    // CGGetActiveDisplayList: at most `maxDisplays` IDs, in the system's order.
    virtual std::vector<DisplayID> activeDisplayList(std::uint32_t maxDisplays) = 0;
    virtual bool isBuiltin(DisplayID id) = 0;                // CGDisplayIsBuiltin
    virtual std::uint32_t vendorNumber(DisplayID id) = 0;    // CGDisplayVendorNumber
    virtual std::uint32_t modelNumber(DisplayID id) = 0;     // CGDisplayModelNumber
    virtual std::uint32_t serialNumber(DisplayID id) = 0;    // CGDisplaySerialNumber

    // CoreDisplay_DisplayCreateInfoDictionary(id)["DisplayProductName"]; nothing when
    // there is no dictionary or no such entry.
    virtual std::optional<ProductNameMap> productNames(DisplayID id) = 0;

    // DisplayServicesGetBrightness: 0 when the system could read the display's
    // brightness itself (Apple displays), another code otherwise.
    virtual std::int32_t displayServicesGetBrightness(DisplayID id, float& brightness) = 0;
};

} // namespace pw::platform
