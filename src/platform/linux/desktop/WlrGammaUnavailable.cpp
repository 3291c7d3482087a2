#include "platform/linux/desktop/WlrGamma.h"

namespace pw::linuxdesktop {

// Built without libwayland-client: no compositor's gamma control to offer.
std::shared_ptr<WlrGammaTables> WlrGammaTables::create(const std::optional<std::string>&,
                                                       DisplaySource, DesktopLog log) {
    log.info("Display", "Dimming through the compositor's gamma control unavailable: this build "
                        "has no Wayland support (libwayland-client)");
    return nullptr;
}

} // namespace pw::linuxdesktop
