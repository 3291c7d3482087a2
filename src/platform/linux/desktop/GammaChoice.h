#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Gamma.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/GammaJournal.h"

namespace pw::linuxdesktop {

// What the session says about itself, read from the environment by `fromEnvironment`
// (XDG_SESSION_TYPE, WAYLAND_DISPLAY, DISPLAY) and given explicitly in tests.
struct SessionFacts {
    std::string sessionType;             // "x11", "wayland", "tty", or empty
    bool hasWaylandDisplay = false;
    std::optional<std::string> xDisplay; // DISPLAY, when set and not empty
    std::optional<std::string> waylandDisplay; // WAYLAND_DISPLAY, when set and not empty

    static SessionFacts fromEnvironment();
    // Whether dimming and the keys try the Wayland paths first (and never the X server,
    // which under Wayland is Xwayland: its gamma ramps change nothing on the screen, and
    // its key grabs see only its own windows). A compositor started from a text console
    // (sway from a tty) leaves XDG_SESSION_TYPE at "tty" but sets WAYLAND_DISPLAY; so
    // anything but an "x11" session with a Wayland display counts as Wayland.
    bool wayland() const {
        return sessionType == "wayland" || (hasWaylandDisplay && sessionType != "x11");
    }
};

// Picks, once, how this session dims in software, and says so in the log:
//  - GNOME (X11 or Wayland), when its display configuration answers on the session bus
//    (or the bus at `busAddress`): Mutter's CRTC gamma (MutterGammaTables);
//  - else an X11 session: the CRTC gamma ramps of the X server (XRandrGammaTables);
//  - else a Wayland session whose compositor (at `waylandDisplay`) offers wlroots' gamma
//    control (sway, Hyprland, ...): that (WlrGammaTables);
//  - else a Wayland session: none; other compositors give programs no gamma through X
//    (the X server of a Wayland session only pretends to have it);
//  - no X server or no RandR: none.
// Null means "dimming unavailable"; a line says why. With a `journal`, the chosen backend
// writes down the ramps it replaces and first repairs what an earlier run left dimmed
// (CrtcGammaTables::keepJournal).
std::shared_ptr<platform::GammaTables> chooseGamma(const SessionFacts& session,
                                                   const std::optional<std::string>& busAddress,
                                                   DisplaySource source, DesktopLog log,
                                                   std::shared_ptr<GammaJournal> journal = nullptr);

} // namespace pw::linuxdesktop
