#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/OSD.h"
#include "platform/linux/desktop/DesktopLog.h"

namespace pw::linuxdesktop {

// KDE Plasma's own level indicator (org.kde.plasmashell /org/kde/osdService,
// org.kde.osdService), offered to the program the way it loads a system indicator: the
// framework path, indicator class and selectors it asks for are answered, and the
// indicator call becomes brightnessChanged(percent) for brightness and
// volumeChanged(percent) for volume; mute shows as volumeChanged(0), which Plasma draws
// as muted. The percentage is filled / total segments, rounded.
//
// Plasma shows its indicator on the screen it chooses (per screen only from Plasma 6.2),
// so the display id is not passed on. Calls are sent without waiting for a reply.
class PlasmaOSDFramework final : public platform::OSDFramework {
public:
    // What the program asks for when it loads the system indicator.
    static constexpr std::string_view kPath = platform::kOSDFrameworkPath;
    static constexpr std::string_view kClassName = platform::kOSDManagerClass;
    static constexpr std::string_view kSharedSelector = platform::kOSDSharedSelector;
    static constexpr std::string_view kShowSelector = platform::kOSDShowSelector;

    // Asks the session bus (or the bus at `busAddress`) once, within a short timeout,
    // whether Plasma's indicator service is there, and logs the answer in one line. Null
    // when it is not (or there is no bus): the program then uses its own indicator.
    static std::shared_ptr<PlasmaOSDFramework> create(const std::optional<std::string>& busAddress,
                                                      DesktopLog log);
    ~PlasmaOSDFramework() override;

    std::shared_ptr<platform::OSDBundle> createBundle(std::string_view path) override;

    struct Connection;

private:
    explicit PlasmaOSDFramework(std::shared_ptr<Connection> connection);
    std::shared_ptr<Connection> connection_;
};

} // namespace pw::linuxdesktop
