#pragma once

#include "display/ExternalDisplay.h"
#include "platform/Platform.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace pw {

class DDCManager;
class DisplayManager;

// Carries out the start-up action the user chose ("app.startupAction"), read each time
// it applies so a change in the settings needs no restart:
//   restoreLast      writes back the brightness, volume and input last set on a monitor
//                    (stored per display), at launch and whenever the monitor reappears
//                    in a new display list;
//   readFromDisplay  refreshes every display's values once, at launch;
//   doNothing        neither.
// Writes go through the DDC manager's ordinary write queue, never on the main thread.
// Main queue only.
class StartupActions : public std::enable_shared_from_this<StartupActions> {
public:
    StartupActions(platform::Platform platform, std::shared_ptr<DisplayManager> displayManager,
                   std::shared_ptr<DDCManager> ddcManager);
    ~StartupActions();

    StartupActions(const StartupActions&) = delete;
    StartupActions& operator=(const StartupActions&) = delete;

    // Call once the launch's display list is published: applies the action to that list,
    // then follows the lists that hot-plug brings.
    void start();

    // Writes the stored last values of one display; the number of writes queued.
    std::size_t restore(const ExternalDisplay& display);

    // After the machine wakes from sleep many monitors come back at their own defaults:
    // with "Restore last values" chosen, every listed monitor gets its values again. The
    // number of writes queued.
    std::size_t afterWake();

private:
    void listChanged(const std::vector<ExternalDisplay>& displays);

    platform::Platform platform_;
    std::shared_ptr<DisplayManager> displayManager_;
    std::shared_ptr<DDCManager> ddcManager_;
    std::uint64_t token_ = 0;
    bool started_ = false;
    // Preference keys of the displays in the last list seen: a key not among them is a
    // monitor that (re)appeared.
    std::set<std::string> present_;
};

} // namespace pw
