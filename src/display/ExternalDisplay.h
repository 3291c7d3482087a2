#pragma once

#include "ddc/VCP.h"
#include "platform/UserDefaults.h"
#include "platform/I2CTransport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pw {

// How far DDC/CI is known to work on a monitor. A status only rises, from
// `unverified` to `verified`, during the life of a record.
enum class DDCStatus {
    verified,     // a read from the monitor returned a value
    unverified,   // a channel exists but the probe read failed; writes may still work
    softwareOnly, // brightness by software dimming only (never assigned by enumeration)
};

std::string_view rawValue(DDCStatus status); // "verified", "unverified", "softwareOnly"
std::string_view label(DDCStatus status);    // "DDC", "DDC (unverified)", "Software"
// Exact raw values only: "Verified" is not a status.
std::optional<DDCStatus> ddcStatusFromRaw(std::string_view raw);

// One reachable external monitor as the display manager publishes it. A plain value
// record; `id`, `name`, `transport`, `vendorID` and `productID` are fixed when the
// enumeration builds it, the rest is updated in place by refreshes and the settings.
struct ExternalDisplay {
    std::uint32_t id = 0;                    // the system's display ID
    std::string name;                        // resolved name shown to the user
    std::shared_ptr<I2CTransport> transport; // carries all DDC/CI traffic; never null
    std::uint32_t vendorID = 0;
    std::uint32_t productID = 0;
    std::optional<DDCReadResult> brightness;
    std::optional<DDCReadResult> contrast;
    std::optional<DDCReadResult> volume;
    std::optional<DDCReadResult> mute;
    std::optional<DDCReadResult> inputSource;
    DDCStatus ddcStatus = DDCStatus::unverified;
    bool ddcSupported = true;
    bool longerDelay = false;
    bool forceSoftwareBrightness = false;

    // name + "+" + vendorID + "+" + productID + "@" + id, nothing escaped. It contains
    // the display ID, so the key (and the options stored under it) changes when the
    // system gives the monitor another ID.
    std::string preferenceKey() const;
    // The name, or "Display <id>" when the name is empty.
    std::string displayTitle() const;
};

// What the user sees a display called everywhere it is named (popover, settings,
// command line): the friendly name stored for it, else its own title. Read from the
// store at every call, so a name typed in the settings shows at once.
std::string displayTitle(const ExternalDisplay& display, const platform::UserDefaults& store);
// The same with the installed platform's store (its own title when none is installed).
std::string displayTitle(const ExternalDisplay& display);

// The displays that get DDC controls, in list order.
std::vector<ExternalDisplay> ddcCapableDisplays(const std::vector<ExternalDisplay>& displays);

} // namespace pw
