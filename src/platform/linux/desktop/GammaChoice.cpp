#include "platform/linux/desktop/GammaChoice.h"

#include "platform/linux/desktop/MutterGamma.h"
#include "platform/linux/desktop/WlrGamma.h"
#include "platform/linux/desktop/XRandrGamma.h"

#include <cstdlib>

namespace pw::linuxdesktop {

namespace {
constexpr std::string_view kCategory = "Display";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}
} // namespace

SessionFacts SessionFacts::fromEnvironment() {
    SessionFacts facts;
    facts.sessionType = environment("XDG_SESSION_TYPE");
    if (auto wayland = environment("WAYLAND_DISPLAY"); !wayland.empty()) {
        facts.hasWaylandDisplay = true;
        facts.waylandDisplay = wayland;
    }
    if (auto display = environment("DISPLAY"); !display.empty()) facts.xDisplay = display;
    return facts;
}

std::shared_ptr<platform::GammaTables> chooseGamma(const SessionFacts& session,
                                                   const std::optional<std::string>& busAddress,
                                                   DisplaySource source, DesktopLog log,
                                                   std::shared_ptr<GammaJournal> journal) {
    if (auto mutter = MutterGammaTables::create(busAddress, source, log)) {
        log.info(kCategory, "Dimming through GNOME's display configuration");
        if (journal) mutter->keepJournal(std::move(journal), "gnome", std::move(source));
        return mutter;
    }
    // Only a compositor named by the session is asked: never some default socket.
    if (session.wayland() && session.waylandDisplay) {
        // It logs its own line when the compositor offers no gamma control, and when it
        // was too slow to tell (it is asked again at the next dim).
        if (auto wlr = WlrGammaTables::create(session.waylandDisplay, source, log)) {
            if (wlr->settled())
                log.info(kCategory, "Dimming through the compositor's gamma control (wlroots)");
            return wlr;
        }
    }
    if (session.wayland()) {
        log.info(kCategory, "Dimming unavailable: this Wayland session gives programs no gamma "
                            "tables; brightness stays within each monitor's own range");
        return nullptr;
    }
    if (!session.xDisplay) {
        log.info(kCategory, "Dimming unavailable: no X server in this session");
        return nullptr;
    }
    // The X gamma tables log their own line when the server cannot be used.
    auto tables = XRandrGammaTables::create(session.xDisplay, source, log);
    if (!tables) return nullptr;
    log.info(kCategory, "Dimming through the X server's gamma ramps");
    if (journal) tables->keepJournal(std::move(journal), "x11", std::move(source));
    return tables;
}

} // namespace pw::linuxdesktop
