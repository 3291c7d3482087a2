#pragma once

#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/PowerEvents.h"

#include <memory>

namespace pw::ui {

// Fills the seams of the real Linux machine that the desktop session answers rather than
// the kernel: screens and pointer, software dimming, media keys, the desktop's own level
// indicator. Each decision is made once, here, and written as one log line; a missing X
// server or bus leaves the feature unavailable and never holds start up for more than the
// pieces' short bus timeouts. The machine's DRM view pairs the window system's outputs
// with the monitors; its platform must hold the main queue and system log, and gets the
// desktop's facilities. The level indicator is the desktop's own where it answers, else
// `indicatorWindow`. Returns the machine's sleep and wake-up reports, or null where none
// can be had.
std::shared_ptr<platform::PowerEvents>
assembleDesktop(platform::LinuxMachine& machine,
                std::shared_ptr<platform::IndicatorWindow> indicatorWindow = nullptr);

// The session's media keys alone (X key grabs, or the desktop's global shortcuts), chosen
// and logged as `assembleDesktop` does, for simulated monitors driven from the person's
// real keyboard. Null where the session has no display or offers no keys.
std::shared_ptr<platform::MediaKeys> sessionKeys(const platform::Platform& p);

// Whether the session's window system composites (transparent pixels show what lies
// beneath), for windows that draw rounded corners and a shadow only then.
bool windowSystemComposites();

} // namespace pw::ui
