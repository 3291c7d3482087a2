#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Screens.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/RandrOutputs.h"

namespace pw::linuxdesktop {

class XConnection;

// The screens and the pointer as the X server has them, for a display-services
// implementation to hand on: one screen per active CRTC, paired with its display by
// connector id or EDID (DisplayPairing.h), named after its output ("HDMI-1").
//
// Coordinates are turned into the program's convention: y grows upwards and the primary
// output's bottom-left corner is the origin. The pointer is given as the centre of the
// pixel it is on, so it lies inside the frame of the screen it is on whether a caller
// counts a frame's lower or upper edge as inside. The visible frame is the desktop's work area (_NET_WORKAREA of the current
// desktop, set by the window manager) cut to the screen; without one it is the frame.
class XRandrScreens final : public platform::Screens {
public:
    // Null, after one logged line, when no X server answers or it has no RandR 1.2.
    static std::shared_ptr<XRandrScreens> create(const std::optional<std::string>& displayName,
                                                 DisplaySource source, DesktopLog log);
    ~XRandrScreens() override;

    // The primary output's screen first, the others in the server's order.
    std::vector<platform::Screen> screens() override;
    std::optional<platform::Screen> mainScreen() override;
    platform::Point pointerLocation() override;

    // The geometry rules alone: outputs and work area in root-window pixels (y down).
    struct WorkArea {
        int x = 0, y = 0;
        unsigned width = 0, height = 0;
    };
    static std::vector<platform::Screen>
    arrange(const std::vector<RandrOutput>& outputs,
            const std::vector<std::optional<platform::DisplayID>>& displays,
            std::optional<WorkArea> workArea);
    // The origin the flip is made about: the bottom-left corner of the primary output
    // (else the first; else the root window's, `rootHeight` high).
    static platform::Point origin(const std::vector<RandrOutput>& outputs, unsigned rootHeight);

private:
    XRandrScreens(std::unique_ptr<XConnection> connection, DisplaySource source);
    std::optional<WorkArea> workArea();

    std::mutex mutex_;
    std::unique_ptr<XConnection> connection_;
    DisplaySource source_;
};

} // namespace pw::linuxdesktop
