#pragma once

#include "ddc/VCP.h"
#include "display/ExternalDisplay.h"
#include "keyboard/MediaKeyHook.h"
#include "platform/Platform.h"

#include <atomic>
#include <memory>
#include <optional>

namespace pw {

class DDCManager;
class DisplayManager;
class OSDManager;

// Turns the brightness, volume and mute keys into DDC/CI steps on the monitor under the
// pointer, and shows the new level. Each press reads (cache first), steps and writes on
// its own "com.panelwright.keypress" queue; the indicator is shown from the main queue.
class KeyboardManager : public MediaKeyHookDelegate,
                        public std::enable_shared_from_this<KeyboardManager> {
public:
    enum class Direction { up, down };

    static constexpr float kDefaultStep = 0.0625f; // 1/16 of the feature's maximum
    static constexpr const char* kKeyPressQueueLabel = "com.panelwright.keypress";

    KeyboardManager(platform::Platform platform, std::shared_ptr<DisplayManager> displayManager,
                    std::shared_ptr<DDCManager> ddcManager, std::shared_ptr<OSDManager> osdManager);
    ~KeyboardManager() override;

    static std::shared_ptr<KeyboardManager> shared();

    void start(); // main thread
    void stop();  // main thread

    void handle(MediaKey key, const KeyEvent& event,
                std::optional<platform::ModifierFlags> modifiers) override;

    // The DDC-capable display under the pointer, else the first one; main thread.
    std::optional<ExternalDisplay> targetDisplay();
    // Schedule one step (or one mute toggle) and return at once.
    void adjust(const ExternalDisplay& display, VCPCode code, Direction direction, float step);
    void toggleDisplayMute(const ExternalDisplay& display);

    float brightnessStep() const { return brightnessStep_; }
    void setBrightnessStep(float step) { brightnessStep_ = step; }
    float volumeStep() const { return volumeStep_; }
    void setVolumeStep(float step) { volumeStep_ = step; }
    // Sets both steps from "brightnessStepPercent" and "volumeStepPercent" (when >= 1).
    void applyStepPreferences();

    const std::shared_ptr<MediaKeyHook>& mediaKeyHook() const { return mediaKeyHook_; }

    // The new value of one step: s = trunc(max x step) (at least 1), up limited to max,
    // down floored at 0.
    static std::uint16_t stepValue(std::uint16_t current, std::uint16_t max, Direction direction,
                                   float step);

private:
    platform::Platform platform_;
    std::shared_ptr<MediaKeyHook> mediaKeyHook_;
    std::shared_ptr<DisplayManager> displayManager_;
    std::shared_ptr<DDCManager> ddcManager_;
    std::shared_ptr<OSDManager> osdManager_;
    std::atomic<float> brightnessStep_{kDefaultStep};
    std::atomic<float> volumeStep_{kDefaultStep};
};

} // namespace pw
