#pragma once

#include "platform/DisplayServices.h"
#include "platform/DrmSysfs.h"

#include <map>
#include <memory>
#include <mutex>

namespace pw::platform {

// The display list of a Linux machine, taken from its DRM connectors: the connected
// ones, built-in panels included and marked, with the identity their EDIDs give. Display
// ids are the connectors' ids. Screens and the pointer come from the window system, not
// from DRM: a collaborator the desktop session provides, none by default.
class DrmDisplayServices final : public DisplayServices {
public:
    // What the window system knows: screens and the pointer.
    class Screens {
    public:
        virtual ~Screens() = default;
        virtual std::vector<Screen> screens() = 0;
        virtual Point pointerLocation() = 0;
    };

    explicit DrmDisplayServices(std::shared_ptr<DrmSysfs> drm,
                                std::shared_ptr<Screens> screens = nullptr);

    // Reads the connectors again; the identity calls answer from that reading.
    std::vector<DisplayID> activeDisplayList(std::uint32_t maxDisplays) override;
    bool isBuiltin(DisplayID id) override;
    std::uint32_t vendorNumber(DisplayID id) override;
    std::uint32_t modelNumber(DisplayID id) override;
    std::uint32_t serialNumber(DisplayID id) override;
    std::optional<ProductNameMap> productNames(DisplayID id) override;
    // Linux has no system-controlled external displays: always "not readable".
    std::int32_t displayServicesGetBrightness(DisplayID id, float& brightness) override;
    std::vector<Screen> screens() override;
    Point pointerLocation() override;

    // The connector behind a display of the last reading.
    std::optional<DrmConnector> connector(DisplayID id);

private:
    std::shared_ptr<DrmSysfs> drm_;
    std::shared_ptr<Screens> screens_;
    std::mutex mutex_;
    std::map<DisplayID, DrmConnector> connected_;
};

} // namespace pw::platform
