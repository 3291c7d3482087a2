#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Gamma.h"
#include "platform/linux/desktop/CrtcGamma.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/CrtcRamp.h"

struct wl_display;
struct wl_registry;
struct wl_output;
struct zwlr_gamma_control_manager_v1;
struct zwlr_gamma_control_v1;

namespace pw::linuxdesktop {

// Software dimming on wlroots-based Wayland compositors (sway, Hyprland, ...): one gamma
// control (zwlr_gamma_control_v1) per output, taken at the first read or install for a
// display and given up at restore. Outputs are paired with displays by their name
// (wl_output version 4: the DRM connector's name, "DP-1"), else by the lone-output rule
// (DisplayPairing.h).
//
// The compositor does not tell an output's current ramp: until we install one, a display
// reads as the identity ramp of the control's length, afterwards as what we installed.
// Restoring destroys the controls, and the compositor puts each output's own gamma back;
// it does the same when the program ends in any way, so a crash leaves nothing dimmed.
// Lengths follow CrtcGammaTables' rules: a read gives the control's length, an install of
// any length is stretched over it, samples clamped to 0...1, an empty table refused.
//
// An output whose control fails (another client, such as a night-light tool, holds its
// gamma) cannot be dimmed: one line names it, and reads and installs answer failure until
// a restore lets us try again. Its picture is never half-set: a table goes whole or not at
// all.
//
// The connection is the object's own and is used under a lock, only while a call runs;
// every wait for the compositor is bounded by `kAnswerTimeout`.
class WlrGammaTables final : public platform::GammaTables {
public:
    static constexpr std::chrono::milliseconds kAnswerTimeout{500};

    // `socketName`: a name under $XDG_RUNTIME_DIR or an absolute path; nothing means
    // $WAYLAND_DISPLAY. Null, after one logged line, when there is no compositor or it
    // offers no gamma control. A compositor that is there but slow to answer at start is
    // asked again at the next call (`settled` false until it has answered): one slow
    // moment does not turn dimming off for the whole run.
    static std::shared_ptr<WlrGammaTables> create(const std::optional<std::string>& socketName,
                                                  DisplaySource source, DesktopLog log);
    // Closes the connection without a word: the compositor gives every output its own
    // gamma back, as it would if we had died.
    ~WlrGammaTables() override;
    WlrGammaTables(const WlrGammaTables&) = delete;
    WlrGammaTables& operator=(const WlrGammaTables&) = delete;

    std::optional<platform::GammaRamp> read(platform::DisplayID display) override;
    bool apply(platform::DisplayID display, const platform::GammaRamp& ramp) override;
    void restoreAll() override;

    // Whether we hold the gamma control of the display's output.
    bool holdsControl(platform::DisplayID display);
    // Whether the compositor has answered what it offers.
    bool settled();

    // One of the compositor's outputs and our control of it. Public for the protocol's
    // listeners only.
    struct Output {
        std::uint32_t global = 0; // the registry's name of the wl_output
        wl_output* proxy = nullptr;
        std::string name;         // version 4 and later; empty before
        zwlr_gamma_control_v1* control = nullptr;
        std::uint32_t size = 0;   // the control's length, 0 until it says
        bool failed = false;      // the control failed; no installs until a restore
        bool failureLogged = false;
        std::optional<CrtcRamp> installed;
        bool gone = false; // unplugged; forgotten before the next pairing
    };
    struct Globals; // the registry's listener

private:
    WlrGammaTables(wl_display* display, DisplaySource source, DesktopLog log);

    // Called with the lock held.
    bool connected();
    bool readEvents(std::chrono::milliseconds timeout);
    bool roundTrip();
    bool settle();
    void pump();
    Output* outputFor(platform::DisplayID display);
    bool takeControl(Output& output, platform::DisplayID display); // false: none to use
    void dropControl(Output& output);
    void noteFailure(Output& output, platform::DisplayID display, const std::string& why);
    bool install(Output& output, const CrtcRamp& ramp);

    std::mutex mutex_;
    DesktopLog log_;
    DisplaySource source_;
    wl_display* display_ = nullptr;
    wl_registry* registry_ = nullptr;
    zwlr_gamma_control_manager_v1* manager_ = nullptr;
    std::vector<std::unique_ptr<Output>> outputs_;
    bool outputsAdded_ = false; // bound since the last round trip: their names are on the way
    bool lost_ = false;         // the connection broke; logged once
    bool settled_ = false;      // the compositor has told its globals
    std::string where_;         // the compositor's socket, for log lines
};

} // namespace pw::linuxdesktop
