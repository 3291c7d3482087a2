#pragma once

#include "platform/linux/desktop/GammaChoice.h"

namespace pw::linuxdesktop {

// Whether the window system composites: a window's transparent pixels show what lies
// beneath it, so a window can have rounded corners and a shadow. A Wayland compositor
// always does. On X11 a compositing manager owns the selection _NET_WM_CM_S<screen> of
// the default screen while it runs; without one (or without an X server) transparent
// pixels come out black.
bool windowSystemComposites(const SessionFacts& session);

} // namespace pw::linuxdesktop
