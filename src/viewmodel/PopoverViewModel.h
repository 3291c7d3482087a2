#pragma once

#include "ddc/VCP.h"
#include "display/ExternalDisplay.h"
#include "gamma/BrightnessCurve.h"
#include "platform/MainQueue.h"
#include "platform/I2CTransport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pw {

class DDCManager;
class DisplayManager;
class GammaManager;

// The controls' values for one display, as the popover shows them. Brightness is the
// slider position on the perceptual curve; the other values are raw monitor units.
struct DisplayState {
    double brightness = 50;
    double brightnessMax = 100;
    double contrast = 50;
    double contrastMax = 100;
    double volume = 50;
    double volumeMax = 100;
    bool isMuted = false;
    std::uint16_t activeInput = 0; // MCCS value of VCP 0x60, 0 when unknown

    friend bool operator==(const DisplayState&, const DisplayState&) = default;
};

// One entry of the popover's input menu.
struct InputChoice {
    InputSource source;
    std::string_view label;  // "HDMI 1"
    std::string_view symbol; // symbol name of its icon
};

// The observable model behind the tray popover. It mirrors the display manager's list of
// DDC-capable displays, keeps one `DisplayState` per display that ever appeared, and turns
// slider moves into debounced DDC writes (one stream per display and VCP code) and
// immediate software dimming. Main thread only. What it persists: the values the user
// last set on each display (for the start-up action that restores them).
//
// The app builds exactly one and keeps it for the life of the process; work queued on
// the main queue (list updates, debounced writes) holds it weakly and ends without effect
// once it is gone.
class PopoverViewModel {
public:
    using Observer = std::function<void()>;
    using ObserverToken = std::uint64_t;

    // Quiet time after the last value on a write stream before it is written.
    static constexpr std::chrono::milliseconds kWriteDebounce{100};

    PopoverViewModel(std::shared_ptr<DisplayManager> displayManager,
                     std::shared_ptr<DDCManager> ddcManager,
                     std::shared_ptr<GammaManager> gammaManager,
                     std::shared_ptr<platform::MainQueue> mainQueue);
    ~PopoverViewModel();

    PopoverViewModel(const PopoverViewModel&) = delete;
    PopoverViewModel& operator=(const PopoverViewModel&) = delete;

    // --- Published values -----------------------------------------------------------

    // The displays shown: the manager's list filtered to `ddcSupported`, order kept.
    const std::vector<ExternalDisplay>& ddcDisplays() const { return ddcDisplays_; }
    // The display's title as the user named it (friendly name, else its own), read from
    // the settings at every call; empty for a display not shown.
    std::string title(std::uint32_t id) const;
    // Whether the bottom of the brightness slider can dim the display in software. False
    // on a desktop that gives programs no gamma tables, or once the display's table could
    // not be read; the popover then says so on the display's section.
    bool dimmingAvailable(std::uint32_t id) const;
    // False once the display's monitor answered that it does not have the feature: the
    // popover then leaves out its control. Unknown counts as supported.
    bool supports(std::uint32_t id, VCPCode code) const;
    // Whether the display's monitor ever answered a read (any feature). One that did not
    // shows its controls disabled: its values would be made up and its writes go nowhere.
    bool answered(std::uint32_t id) const;
    // A one-line notice after a write the monitor did not take (all retries spent); the
    // control was put back to the last value the monitor had. Empty when there is none;
    // it clears itself after kFailureNoticeTime.
    std::string writeFailure(std::uint32_t id) const;
    static constexpr std::chrono::seconds kFailureNoticeTime{4};

    // Every display that ever was shown keeps its entry.
    const std::map<std::uint32_t, DisplayState>& displayStates() const { return displayStates_; }
    // The display's entry, or the default state.
    DisplayState stateFor(std::uint32_t id) const;
    // Stores a whole state under the id (views write back what a control changed).
    void setState(std::uint32_t id, const DisplayState& state);

    // `observer` is called on the main queue after every change of either published value.
    ObserverToken subscribe(Observer observer);
    void unsubscribe(ObserverToken token);
    // A display's stored options changed (the settings window): observers are told, so
    // titles and the like are read again.
    void displayOptionsChanged() { notify(); }

    // --- Operations -----------------------------------------------------------------

    // Brightness slider at `value`: debounced DDC write plus immediate software dimming.
    void changeBrightness(std::uint32_t id, double value);
    // Sends a value into the display's debounced stream for `code`.
    void queueWrite(std::uint32_t id, VCPCode code, std::uint16_t value);
    // Flips the stored mute and writes 1 (muted) or 2 (sound on) through the mute stream.
    void toggleMute(std::uint32_t id);
    // Records the input and writes it at once, state entry or not.
    void selectInput(std::uint32_t id, InputSource input);
    // Drops the cached readings of the shown displays and asks the display manager to read
    // them again; the new values arrive through the published list.
    void refresh();

    // What a slider move does, so the views hold no logic: store the whole state with the
    // new value, then write.
    void moveBrightnessSlider(std::uint32_t id, double value);
    void moveVolumeSlider(std::uint32_t id, double value);

    // The inputs the popover offers, in menu order.
    static const std::vector<InputChoice>& inputChoices();

    // "<display id>-<VCP code>", both decimal: the key of a write stream.
    static std::string writeStreamKey(std::uint32_t id, VCPCode code);
    // Keys of the streams made so far; a stream is made on first use and kept.
    std::vector<std::string> writeStreamKeys() const;

private:
    struct WriteStream;

    void applyDisplayList(const std::vector<ExternalDisplay>& displays);
    const ExternalDisplay* findDisplay(std::uint32_t id) const;
    void deliver(const std::string& key, std::uint64_t generation);
    // The outcome of a write: success records the value as the monitor's; failure puts the
    // control back, unless a newer value is already on its way (`generation` is then old).
    void writeFinished(std::uint32_t id, VCPCode code, std::uint64_t generation, bool ok);
    void notify();

    std::shared_ptr<DisplayManager> displayManager_;
    std::shared_ptr<DDCManager> ddcManager_;
    std::shared_ptr<GammaManager> gammaManager_;
    std::shared_ptr<platform::MainQueue> mainQueue_;

    std::vector<ExternalDisplay> ddcDisplays_;
    std::map<std::uint32_t, DisplayState> displayStates_;
    std::map<std::string, WriteStream> writeSubjects_;
    // What each monitor last said or took, for putting a control back after a failed write.
    std::map<std::uint32_t, DisplayState> confirmed_;
    struct Notice {
        std::string text;
        std::uint64_t generation = 0;
    };
    std::map<std::uint32_t, Notice> failures_;
    std::uint64_t noticeGeneration_ = 0;
    std::map<ObserverToken, Observer> observers_;
    ObserverToken nextToken_ = 1;
    std::uint64_t displayListToken_ = 0;
    // Queued main-queue work holds this weakly: gone means the model is gone.
    std::shared_ptr<PopoverViewModel*> life_;
};

} // namespace pw
