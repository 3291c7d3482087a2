#pragma once

#include "platform/Platform.h"

#include <memory>

namespace pw {

// The level shown after a key changed a monitor. Decides whether to show ("app.showOSD",
// read at every show so the setting takes effect at once), what and on which display; how
// it is shown (the system's indicator or our own window) is the machine's business.
class OSDManager {
public:
    // The machine's indicator and the preferences store are taken from `platform`.
    static std::shared_ptr<OSDManager> create(const platform::Platform& platform);

    // Main thread.
    void showBrightness(float level, platform::DisplayID display);
    void showVolume(float level, platform::DisplayID display);
    void showMute(platform::DisplayID display);

    // Whether levels are to be shown at all ("app.showOSD", default true).
    bool wanted() const;

private:
    explicit OSDManager(const platform::Platform& platform);
    void show(platform::IndicatorKind kind, float level, platform::DisplayID display);

    std::shared_ptr<platform::LevelIndicator> indicator_;
    std::shared_ptr<platform::UserDefaults> defaults_;
    bool reportedNoIndicator_ = false; // main thread only
};

} // namespace pw
