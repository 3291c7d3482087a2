#pragma once

#include "ddc/VCP.h"
#include "display/ExternalDisplay.h"
#include "platform/MediaKeys.h"
#include "platform/Platform.h"
#include "support/SerialQueue.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace pw {

class DDCManager;
class DisplayManager;
class GammaManager;
class OSDManager;

// Turns the brightness, volume and mute keys into DDC/CI steps on the monitor under the
// pointer, and shows the new level. The machine's key source hands the keys over; they
// are posted to the main queue and acted on there. The key work of each display runs in
// order on a "com.panelwright.keypress" worker of its own, owned by the manager and joined
// by `stop` and the destructor: a unit reads (cache first), steps and writes; presses that
// arrive while a unit runs fold into the one waiting behind it. The indicator is shown from
// the main queue.
class KeyboardManager : public std::enable_shared_from_this<KeyboardManager> {
public:
    enum class Direction { up, down };

    static constexpr float kDefaultStep = 0.0625f; // 1/16 of the feature's maximum
    static constexpr const char* kKeyPressQueueLabel = "com.panelwright.keypress";

    KeyboardManager(platform::Platform platform, std::shared_ptr<DisplayManager> displayManager,
                    std::shared_ptr<DDCManager> ddcManager, std::shared_ptr<OSDManager> osdManager,
                    std::shared_ptr<GammaManager> gammaManager = nullptr);
    ~KeyboardManager();


    void start(); // main thread
    void stop();  // main thread; joins the key workers

    // One key from the source, on the main thread.
    void handle(const platform::MediaKeyEvent& event);

    // The DDC-capable display under the pointer, else the first one; main thread.
    std::optional<ExternalDisplay> targetDisplay();
    // Schedule one step (or one mute toggle) and return at once. Main thread.
    void adjust(const ExternalDisplay& display, VCPCode code, Direction direction, float step);
    void toggleDisplayMute(const ExternalDisplay& display);
    // Brightness of a display forced to software: one step of the gamma level (the step
    // as a fraction of full), floored like the popover's slider. Main thread.
    void adjustSoftwareBrightness(platform::DisplayID id, Direction direction, float step);
    // The gamma manager the software steps go through (none: software steps do nothing).
    void setGammaManager(std::shared_ptr<GammaManager> gamma) { gammaManager_ = std::move(gamma); }

    float brightnessStep() const { return brightnessStep_; }
    void setBrightnessStep(float step) { brightnessStep_ = step; }
    float volumeStep() const { return volumeStep_; }
    void setVolumeStep(float step) { volumeStep_ = step; }
    // (The stored "brightnessStepPercent" and "volumeStepPercent" are applied by
    // applyTuningPreferences, app/Tuning.h.)


    // The new value of one step: s = trunc(max x step) (at least 1), up limited to max,
    // down floored at 0. A product of 65535 or more is clamped to 65535, a step as wide as
    // any 16-bit range: up then reaches max and down reaches 0. A current value above max
    // (a monitor reporting more than its own maximum) is never lowered by a step up; a step
    // down starts from max.
    static std::uint16_t stepValue(std::uint16_t current, std::uint16_t max, Direction direction,
                                   float step);

    // Presses scheduled whose work has not ended yet, folded ones included. A press counts
    // as ended once the unit it ran in has released its display record and transport; an
    // indicator it posted may still be waiting on the main queue.
    std::size_t pressesInFlight() const;
    // Blocks until no press is in flight (the work of presses scheduled meanwhile included).
    void waitForPresses() const;

private:
    // One step of one press, or `count` equal ones typed in a row.
    struct StepRun {
        Direction direction;
        float step;
        std::uint32_t count;
    };
    // One unit of key work for one display: an adjustment of one feature by the steps of
    // every press folded into it, or the mute toggles folded into it.
    struct KeyWork {
        ExternalDisplay display;
        VCPCode code = VCPCode::brightness;
        std::vector<StepRun> steps; // adjustments, in press order
        std::uint32_t toggles = 0;  // mute
        // Decided on the main thread when the key was pressed: whether an unmute reads the
        // volume to show it.
        bool showVolumeAfterUnmute = false;
        std::size_t presses = 0;
    };
    // The key work of one display: the unit running and the ones waiting behind it. A lane
    // exists exactly while its display has key work; its display's worker stays.
    struct DisplayLane {
        std::deque<KeyWork> waiting; // at most one unit per feature
    };
    // Shared with the key work, which may outlive the manager.
    struct PressTracker {
        mutable std::mutex mutex;
        mutable std::condition_variable idle;
        std::size_t inFlight = 0; // presses, folded ones included
        std::map<platform::DisplayID, DisplayLane> lanes;
    };

    // Hands `work` to its display's lane: folded into a waiting unit of the same feature,
    // queued behind the running one, or started on a new key-press queue.
    void schedule(KeyWork work);
    // Runs on the display's worker, which the manager joins before it goes: `this` is
    // valid throughout, and the manager is never let go on a worker.
    void drainLane(KeyWork work);
    void joinWorkers();
    void runAdjustment(const KeyWork& work);
    void runMuteToggle(const KeyWork& work);
    // Posts `show` to the main queue, to run there only if the manager still exists and the
    // user wants indicators.
    void postIndicator(std::function<void(KeyboardManager&)> show);
    // Stores a value the monitor accepted as the one to restore at the next launch.
    void rememberLastValue(const ExternalDisplay& display, VCPCode code, std::uint16_t value);
    std::shared_ptr<GammaManager> gammaManager() const;
    bool indicatorsWanted() const;

    platform::Platform platform_;
    bool keysStarted_ = false;
    std::shared_ptr<DisplayManager> displayManager_;
    std::shared_ptr<DDCManager> ddcManager_;
    std::shared_ptr<OSDManager> osdManager_;
    std::shared_ptr<GammaManager> gammaManager_;
    std::atomic<float> brightnessStep_{kDefaultStep};
    std::atomic<float> volumeStep_{kDefaultStep};
    std::shared_ptr<PressTracker> presses_ = std::make_shared<PressTracker>();
    // One worker per display that had key work; main thread only.
    std::map<platform::DisplayID, std::unique_ptr<SerialQueue>> workers_;
    std::atomic<bool> closing_{false}; // workers skip the bus once the manager goes
};

} // namespace pw
