#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pw::platform {

using DisplayID = std::uint32_t;

// The CoreDisplay info dictionary's "DisplayProductName" entry: locale -> name,
// in the dictionary's own order. `wrongType` is set when the entry exists but is
// not a map of strings (then `names` is empty).
struct ProductNameMap {
    std::vector<std::pair<std::string, std::string>> names;
    bool wrongType = false;
};

struct Point {
    double x = 0, y = 0;
};

struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    bool contains(double px, double py) const {
        return px >= x && px < x + width && py >= y && py < y + height;
    }
    bool contains(Point p) const { return contains(p.x, p.y); }
    double midX() const { return x + width / 2; }
};

// One screen of the window system ("NSScreen"): its display number ("NSScreenNumber",
// absent when the device description lacks it), localized name, frame and the part of
// the frame not covered by panels and docks. Global coordinates, y growing upwards.
struct Screen {
    std::optional<DisplayID> number;
    std::string localizedName;
    Rect frame;
    std::optional<Rect> visibleFrameOverride;
    Rect visibleFrame() const { return visibleFrameOverride.value_or(frame); }
};

// The window system's view of the displays: the active list and each display's identity.
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

    // NSScreen.screens, in order.
    virtual std::vector<Screen> screens() = 0;
    // NSScreen.mainScreen: the screen with the keyboard focus; the first one by default.
    virtual std::optional<Screen> mainScreen() {
        auto all = screens();
        if (all.empty()) return std::nullopt;
        return all.front();
    }
    // The mouse pointer's position in global screen coordinates (NSEvent.mouseLocation).
    virtual Point pointerLocation() = 0;
};

} // namespace pw::platform
