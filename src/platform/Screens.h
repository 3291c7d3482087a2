#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pw::platform {

using DisplayID = std::uint32_t;

struct Point {
    double x = 0, y = 0;
};

struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    bool contains(double px, double py) const {
        return px >= x && px < x + width && py >= y && py < y + height;
    }
    bool contains(Point p) const { return contains(p.x, p.y); }
    double midX() const { return x + width / 2; }
};

// One screen of the window system: the display it shows (absent when the window system
// does not say), its name, frame and the part of the frame not covered by panels and
// docks, and whether it is a built-in panel. Global coordinates, y growing upwards.
struct Screen {
    std::optional<DisplayID> number;
    std::string localizedName;
    Rect frame;
    std::optional<Rect> visibleFrameOverride;
    bool builtIn = false;
    Rect visibleFrame() const { return visibleFrameOverride.value_or(frame); }
};

// The window system's screens and the pointer.
class Screens {
public:
    virtual ~Screens() = default;
    // Every screen, in the window system's order.
    virtual std::vector<Screen> screens() = 0;
    // The screen with the keyboard focus; the first one by default.
    virtual std::optional<Screen> mainScreen() {
        auto all = screens();
        if (all.empty()) return std::nullopt;
        return all.front();
    }
    // The mouse pointer's position in global screen coordinates.
    virtual Point pointerLocation() = 0;
};

} // namespace pw::platform
