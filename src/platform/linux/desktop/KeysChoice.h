#pragma once

#include "platform/MediaKeys.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/GammaChoice.h"

#include <memory>
#include <optional>
#include <string>

namespace pw::linuxdesktop {

// Picks, once, how this session takes the media keys, and says so in the log:
//  - an X11 session: X key grabs (X11MediaKeys); the keys the X server refuses because
//    another program grabbed them are asked of KDE's global shortcuts, where they answer
//    on the session bus (or the bus at `busAddress`), and named when nobody gives them;
//  - a Wayland session: KDE's global shortcuts where they answer, else the desktop
//    portal's global shortcuts where it offers them;
//  - else none: a Wayland desktop that offers neither, or no X server.
// Null means "media keys unavailable"; a line says why. The popover and the command line
// work either way.
std::shared_ptr<platform::MediaKeys> chooseKeys(const SessionFacts& session,
                                                const std::optional<std::string>& busAddress,
                                                DesktopLog log);

} // namespace pw::linuxdesktop
