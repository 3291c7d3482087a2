#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/LevelIndicator.h"
#include "platform/linux/desktop/DesktopLog.h"

namespace pw::linuxdesktop {

// KDE Plasma's own level indicator (org.kde.plasmashell /org/kde/osdService,
// org.kde.osdService): brightness becomes brightnessChanged(percent), volume
// volumeChanged(percent), mute volumeChanged(0), which Plasma draws as muted. The
// percentage is the level pinned to 0..1, rounded.
//
// Plasma shows its indicator on the screen it chooses (per screen only from Plasma 6.2),
// so the display id is not passed on; it fades by itself. Calls are sent without waiting
// for a reply.
class PlasmaIndicator final : public platform::LevelIndicator {
public:
    // Asks the session bus (or the bus at `busAddress`) once, within a short timeout,
    // whether Plasma's indicator service is there, and logs the answer in one line. Null
    // when it is not (or there is no bus): the program then uses its own indicator.
    static std::shared_ptr<PlasmaIndicator> create(const std::optional<std::string>& busAddress,
                                                   DesktopLog log);
    ~PlasmaIndicator() override;

    void show(platform::IndicatorKind kind, float level, platform::DisplayID display) override;

    struct Connection;

private:
    explicit PlasmaIndicator(std::shared_ptr<Connection> connection);
    std::shared_ptr<Connection> connection_;
};

} // namespace pw::linuxdesktop
