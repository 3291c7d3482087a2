#pragma once

#include "platform/Screens.h"
#include "platform/macos/DisplayServices.h"
#include "platform/sim/Scenario.h"

#include <mutex>
#include <vector>

namespace pw::sim {

// The window system of the simulated machine: the active displays in the order the
// system lists them, their identities, product names and screens. Thread-safe, since
// the program asks from worker threads while displays are plugged in on the main one.
class SimDisplayServices final : public platform::DisplayServices, public platform::Screens {
public:
    // What displayServicesGetBrightness answers for a display the system cannot dim
    // itself (any non-zero code will do for the program).
    static constexpr std::int32_t kNotSupported = 1001;

    // The display joins at the end of the list; its frame must already be placed.
    void add(DisplaySpec display);
    bool remove(platform::DisplayID id);
    std::vector<DisplaySpec> active() const;

    std::vector<platform::DisplayID> activeDisplayList(std::uint32_t maxDisplays) override;
    bool isBuiltin(platform::DisplayID id) override;
    std::uint32_t vendorNumber(platform::DisplayID id) override;
    std::uint32_t modelNumber(platform::DisplayID id) override;
    std::uint32_t serialNumber(platform::DisplayID id) override;
    std::optional<platform::ProductNameMap> productNames(platform::DisplayID id) override;
    std::int32_t displayServicesGetBrightness(platform::DisplayID id, float& brightness) override;
    std::vector<platform::Screen> screens() override;
    platform::Point pointerLocation() override;

    // The pointer: placed anywhere, or at the centre of an active display's screen
    // (false when the display is not active). It starts at the origin.
    void setPointer(platform::Point location);
    bool movePointerTo(platform::DisplayID id);

private:
    const DisplaySpec* find(platform::DisplayID id) const;

    mutable std::mutex mutex_;
    std::vector<DisplaySpec> displays_;
    platform::Point pointer_;
};

} // namespace pw::sim
