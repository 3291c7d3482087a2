#include "viewmodel/PopoverViewModel.h"

#include "base/Preferences.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "gamma/GammaManager.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace pw {

// --- Write streams --------------------------------------------------------------------

// The newest value sent into one stream and the number of values sent so far; a timer
// posted with a generation delivers only when no newer value arrived since.
struct PopoverViewModel::WriteStream {
    std::shared_ptr<I2CTransport> transport;
    std::uint32_t id = 0;
    std::string preferenceKey;
    VCPCode code = VCPCode::brightness;
    std::uint16_t value = 0;
    std::uint64_t generation = 0;
};

std::string PopoverViewModel::writeStreamKey(std::uint32_t id, VCPCode code) {
    return std::to_string(id) + "-" + std::to_string(rawValue(code));
}

std::vector<std::string> PopoverViewModel::writeStreamKeys() const {
    std::vector<std::string> keys;
    for (const auto& entry : writeSubjects_)
        keys.push_back(entry.first);
    return keys;
}

// --- Life -----------------------------------------------------------------------------

PopoverViewModel::PopoverViewModel(std::shared_ptr<DisplayManager> displayManager,
                                   std::shared_ptr<DDCManager> ddcManager,
                                   std::shared_ptr<GammaManager> gammaManager,
                                   std::shared_ptr<platform::MainQueue> mainQueue)
    : displayManager_(std::move(displayManager)), ddcManager_(std::move(ddcManager)),
      gammaManager_(std::move(gammaManager)), mainQueue_(std::move(mainQueue)),
      life_(std::make_shared<PopoverViewModel*>(this)) {
    // Every list the manager publishes, and the one it holds now, reaches the model on
    // the main queue, after whatever the main queue was already doing.
    auto deliver = [weak = std::weak_ptr<PopoverViewModel*>(life_),
                    queue = mainQueue_](std::vector<ExternalDisplay> displays) {
        queue->post([weak, displays = std::move(displays)] {
            if (auto model = weak.lock()) (*model)->applyDisplayList(displays);
        });
    };
    displayListToken_ = displayManager_->subscribe(
        [deliver](const std::vector<ExternalDisplay>& displays) { deliver(displays); });
    deliver(displayManager_->displays());
}

PopoverViewModel::~PopoverViewModel() {
    displayManager_->unsubscribe(displayListToken_);
}

// --- Published values -----------------------------------------------------------------

DisplayState PopoverViewModel::stateFor(std::uint32_t id) const {
    const auto found = displayStates_.find(id);
    return found == displayStates_.end() ? DisplayState{} : found->second;
}

void PopoverViewModel::setState(std::uint32_t id, const DisplayState& state) {
    displayStates_[id] = state;
    notify();
}

PopoverViewModel::ObserverToken PopoverViewModel::subscribe(Observer observer) {
    const auto token = nextToken_++;
    observers_.emplace(token, std::move(observer));
    return token;
}

void PopoverViewModel::unsubscribe(ObserverToken token) {
    observers_.erase(token);
}

void PopoverViewModel::notify() {
    // A copy, so an observer may unsubscribe (or subscribe) while being told.
    const auto observers = observers_;
    for (const auto& entry : observers)
        entry.second();
}

void PopoverViewModel::applyDisplayList(const std::vector<ExternalDisplay>& displays) {
    ddcDisplays_ = ddcCapableDisplays(displays);
    for (const auto& display : ddcDisplays_) {
        DisplayState state = stateFor(display.id);
        if (display.brightness) {
            state.brightnessMax = display.brightness->max;
            state.brightness = BrightnessCurve::sliderPosition(display.brightness->current,
                                                               display.brightness->max);
        }
        if (display.contrast) {
            state.contrast = display.contrast->current;
            state.contrastMax = display.contrast->max;
        }
        if (display.volume) {
            state.volume = display.volume->current;
            state.volumeMax = display.volume->max;
        }
        if (display.mute) state.isMuted = display.mute->current == 1;
        if (display.inputSource) state.activeInput = display.inputSource->current;
        displayStates_[display.id] = state;
        confirmed_[display.id] = state;
    }
    notify();
}

std::string PopoverViewModel::title(std::uint32_t id) const {
    const auto* display = findDisplay(id);
    return display ? displayTitle(*display) : std::string();
}

bool PopoverViewModel::dimmingAvailable(std::uint32_t id) const {
    return gammaManager_ && gammaManager_->canDim(id);
}

bool PopoverViewModel::supports(std::uint32_t id, VCPCode code) const {
    const auto* display = findDisplay(id);
    return !(display && display->transport && ddcManager_ &&
             ddcManager_->saidUnsupported(*display->transport, rawValue(code)));
}

bool PopoverViewModel::answered(std::uint32_t id) const {
    const auto* d = findDisplay(id);
    return d && (d->brightness || d->contrast || d->volume || d->mute || d->inputSource);
}

std::string PopoverViewModel::writeFailure(std::uint32_t id) const {
    const auto found = failures_.find(id);
    return found == failures_.end() ? std::string() : found->second.text;
}

const ExternalDisplay* PopoverViewModel::findDisplay(std::uint32_t id) const {
    for (const auto& display : ddcDisplays_)
        if (display.id == id) return &display;
    return nullptr;
}

// --- Operations -----------------------------------------------------------------------

void PopoverViewModel::changeBrightness(std::uint32_t id, double value) {
    if (!findDisplay(id)) return;
    double max = 100;
    if (const auto found = displayStates_.find(id); found != displayStates_.end()) {
        max = found->second.brightnessMax;
        if (!(max > 0)) return;
    }
    // Read at every move, so the settings' toggle applies to the next one.
    const bool couldDim = dimmingAvailable(id);
    if (Preferences::forceSoftwareBrightness(findDisplay(id)->preferenceKey())) {
        gammaManager_->setBrightness(id, BrightnessCurve::softwareLevel(value, max));
    } else {
        const double f = BrightnessCurve::fraction(value, max);
        queueWrite(id, VCPCode::brightness, BrightnessCurve::ddcValue(f, max));
        gammaManager_->setBrightness(id, BrightnessCurve::dimmingLevel(f));
    }
    // A table that could not be read shows on the section at once.
    if (couldDim != dimmingAvailable(id)) notify();
}

void PopoverViewModel::queueWrite(std::uint32_t id, VCPCode code, std::uint16_t value) {
    const auto* display = findDisplay(id);
    if (!display) return;
    const auto key = writeStreamKey(id, code);
    auto& stream = writeSubjects_[key];
    stream.transport = display->transport;
    stream.id = id;
    stream.preferenceKey = display->preferenceKey();
    stream.code = code;
    stream.value = value;
    const auto generation = ++stream.generation;
    mainQueue_->postAfter(kWriteDebounce,
                          [weak = std::weak_ptr<PopoverViewModel*>(life_), key, generation] {
                              if (auto model = weak.lock()) (*model)->deliver(key, generation);
                          });
}

void PopoverViewModel::deliver(const std::string& key, std::uint64_t generation) {
    const auto found = writeSubjects_.find(key);
    if (found == writeSubjects_.end() || found->second.generation != generation) return;
    const auto& stream = found->second;
    ddcManager_->write(stream.transport, stream.code, stream.value,
                       [weak = std::weak_ptr<PopoverViewModel*>(life_), id = stream.id, code = stream.code,
                        generation, preferenceKey = stream.preferenceKey,
                        value = stream.value](bool ok) {
                           // What the user settled on, for the start-up action that
                           // restores it: only what the monitor took.
                           if (ok && code == VCPCode::brightness)
                               Preferences::setLastValue(preferenceKey,
                                                         Preferences::kLastBrightness, value);
                           else if (ok && code == VCPCode::volume)
                               Preferences::setLastValue(preferenceKey, Preferences::kLastVolume,
                                                         value);
                           if (auto model = weak.lock())
                               (*model)->writeFinished(id, code, generation, ok);
                       });
}

void PopoverViewModel::writeFinished(std::uint32_t id, VCPCode code, std::uint64_t generation,
                                     bool ok) {
    const auto stateFound = displayStates_.find(id);
    if (stateFound == displayStates_.end()) return;
    DisplayState& state = stateFound->second;
    DisplayState& confirmed = confirmed_[id];
    if (ok) {
        switch (code) {
        case VCPCode::brightness: confirmed.brightness = state.brightness; break;
        case VCPCode::volume: confirmed.volume = state.volume; break;
        case VCPCode::mute: confirmed.isMuted = state.isMuted; break;
        case VCPCode::inputSource: confirmed.activeInput = state.activeInput; break;
        default: break;
        }
        return;
    }
    // A newer value is already on its way: that write decides.
    if (code != VCPCode::inputSource) {
        const auto stream = writeSubjects_.find(writeStreamKey(id, code));
        if (stream != writeSubjects_.end() && stream->second.generation != generation) return;
    }
    std::string what;
    switch (code) {
    case VCPCode::brightness:
        state.brightness = confirmed.brightness;
        what = "brightness";
        if (state.brightnessMax > 0 && gammaManager_)
            gammaManager_->setBrightness(
                id, BrightnessCurve::dimmingLevel(
                        BrightnessCurve::fraction(state.brightness, state.brightnessMax)));
        break;
    case VCPCode::volume: state.volume = confirmed.volume; what = "volume"; break;
    case VCPCode::mute: state.isMuted = confirmed.isMuted; what = "mute setting"; break;
    case VCPCode::inputSource: state.activeInput = confirmed.activeInput; what = "input"; break;
    default: what = "setting"; break;
    }
    const auto notice = ++noticeGeneration_;
    failures_[id] = {"The monitor did not take the new " + what + "; it is back where it was.",
                     notice};
    mainQueue_->postAfter(kFailureNoticeTime,
                          [weak = std::weak_ptr<PopoverViewModel*>(life_), id, notice] {
                              auto model = weak.lock();
                              if (!model) return;
                              auto& failures = (*model)->failures_;
                              const auto found = failures.find(id);
                              if (found == failures.end() || found->second.generation != notice)
                                  return;
                              failures.erase(found);
                              (*model)->notify();
                          });
    notify();
}

void PopoverViewModel::toggleMute(std::uint32_t id) {
    const auto found = displayStates_.find(id);
    if (found == displayStates_.end()) return;
    found->second.isMuted = !found->second.isMuted;
    const bool muted = found->second.isMuted;
    notify();
    queueWrite(id, VCPCode::mute, muted ? 1 : 2);
}

void PopoverViewModel::selectInput(std::uint32_t id, InputSource input) {
    const auto* display = findDisplay(id);
    if (!display) return;
    if (const auto found = displayStates_.find(id); found != displayStates_.end()) {
        found->second.activeInput = rawValue(input);
        notify();
    }
    ddcManager_->write(display->transport, VCPCode::inputSource, rawValue(input),
                       [weak = std::weak_ptr<PopoverViewModel*>(life_), id,
                        preferenceKey = display->preferenceKey(), input](bool ok) {
                           if (ok)
                               Preferences::setLastValue(preferenceKey, Preferences::kLastInput,
                                                         rawValue(input));
                           if (auto model = weak.lock())
                               (*model)->writeFinished(id, VCPCode::inputSource, 0, ok);
                       });
}

void PopoverViewModel::refresh() {
    for (const auto& display : ddcDisplays_)
        ddcManager_->invalidateCache(*display.transport);
    displayManager_->refreshDisplays();
}

void PopoverViewModel::moveBrightnessSlider(std::uint32_t id, double value) {
    auto state = stateFor(id);
    state.brightness = value;
    setState(id, state);
    changeBrightness(id, value);
}

void PopoverViewModel::moveVolumeSlider(std::uint32_t id, double value) {
    auto state = stateFor(id);
    state.volume = value;
    setState(id, state);
    // Cut toward zero, kept within 16 bits.
    std::uint16_t raw = 0;
    if (value >= std::numeric_limits<std::uint16_t>::max())
        raw = std::numeric_limits<std::uint16_t>::max();
    else if (value > 0)
        raw = static_cast<std::uint16_t>(value);
    queueWrite(id, VCPCode::volume, raw);
}

const std::vector<InputChoice>& PopoverViewModel::inputChoices() {
    static const std::vector<InputChoice> choices = [] {
        std::vector<InputChoice> list;
        for (auto source : {InputSource::hdmi1, InputSource::hdmi2, InputSource::displayPort1,
                            InputSource::displayPort2, InputSource::usbC})
            list.push_back({source, label(source), icon(source)});
        return list;
    }();
    return choices;
}

} // namespace pw
