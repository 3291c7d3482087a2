#include "keyboard/KeyboardManager.h"

#include "app/Preferences.h"
#include "app/SystemLog.h"
#include "ddc/DDCManager.h"
#include "ddc/DDCMessages.h"
#include "display/DisplayManager.h"
#include "osd/OSDManager.h"

#include <algorithm>
#include <string>
#include <vector>

namespace pw {

namespace {

// The widest step a 16-bit feature can take.
constexpr std::uint32_t kWidestStep = 65535;

const std::vector<MediaKey>& watchedKeys() {
    static const std::vector<MediaKey> keys = {MediaKey::brightnessUp, MediaKey::brightnessDown,
                                               MediaKey::volumeUp, MediaKey::volumeDown,
                                               MediaKey::mute};
    return keys;
}

float fraction(std::uint16_t value, std::uint16_t max) {
    return static_cast<float>(value) / static_cast<float>(max);
}

} // namespace

KeyboardManager::KeyboardManager(platform::Platform platform,
                                 std::shared_ptr<DisplayManager> displayManager,
                                 std::shared_ptr<DDCManager> ddcManager,
                                 std::shared_ptr<OSDManager> osdManager)
    : platform_(std::move(platform)), displayManager_(std::move(displayManager)),
      ddcManager_(std::move(ddcManager)), osdManager_(std::move(osdManager)) {}

KeyboardManager::~KeyboardManager() = default;

std::shared_ptr<KeyboardManager> KeyboardManager::shared() {
    static const std::shared_ptr<KeyboardManager> instance = std::make_shared<KeyboardManager>(
        platform::current(), DisplayManager::shared(), DDCManager::shared(), OSDManager::shared());
    return instance;
}

// --- The tap -------------------------------------------------------------------------------

void KeyboardManager::start() {
    // A previous hook is dropped without `stop`: destroying it tears its tap down.
    mediaKeyHook_ = MediaKeyHook::create(platform_, weak_from_this(), KeyPressMode::keyDown,
                                         watchedKeys(), /*observeBuiltIn=*/false);
    mediaKeyHook_->start();
    SystemLog::keyboard().info("Keyboard monitoring started");
}

void KeyboardManager::stop() {
    if (mediaKeyHook_) mediaKeyHook_->stop();
    mediaKeyHook_.reset();
    SystemLog::keyboard().info("Keyboard monitoring stopped");
}

void KeyboardManager::handle(MediaKey key, const KeyEvent& /*event*/,
                             std::optional<platform::ModifierFlags> /*modifiers*/) {
    // An auto-repeat is handled like a fresh press; the event and modifiers play no part.
    const auto display = targetDisplay();
    if (!display) return;
    switch (key) {
    case MediaKey::brightnessUp:
        adjust(*display, VCPCode::brightness, Direction::up, brightnessStep());
        break;
    case MediaKey::brightnessDown:
        adjust(*display, VCPCode::brightness, Direction::down, brightnessStep());
        break;
    case MediaKey::volumeUp:
        adjust(*display, VCPCode::volume, Direction::up, volumeStep());
        break;
    case MediaKey::volumeDown:
        adjust(*display, VCPCode::volume, Direction::down, volumeStep());
        break;
    case MediaKey::mute:
        toggleDisplayMute(*display);
        break;
    default:
        break;
    }
}

std::optional<ExternalDisplay> KeyboardManager::targetDisplay() {
    if (!displayManager_) return std::nullopt;
    const auto candidates = ddcCapableDisplays(displayManager_->displays());
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front();

    if (auto* screens = platform_.displays.get()) {
        const auto pointer = screens->pointerLocation();
        for (const auto& screen : screens->screens()) {
            if (!screen.frame.contains(pointer)) continue;
            // The first screen under the pointer decides, whether or not it is a candidate.
            if (screen.number) {
                for (const auto& candidate : candidates)
                    if (candidate.id == *screen.number) return candidate;
            }
            break;
        }
    }
    return candidates.front();
}

// --- Steps -----------------------------------------------------------------------------------

std::uint16_t KeyboardManager::stepValue(std::uint16_t current, std::uint16_t max,
                                         Direction direction, float step) {
    const float product = static_cast<float>(max) * step;
    std::uint32_t s = 1; // also for a negative or NaN step
    if (product >= static_cast<float>(kWidestStep))
        s = kWidestStep;
    else if (product >= 1.0f)
        s = static_cast<std::uint32_t>(product); // truncated toward zero

    if (direction == Direction::up)
        return static_cast<std::uint16_t>(std::min<std::uint32_t>(current + s, max));
    return current > s ? static_cast<std::uint16_t>(current - s) : std::uint16_t{0};
}

void KeyboardManager::applyStepPreferences() {
    if (!platform_.defaults) return;
    auto& store = *platform_.defaults;
    const auto brightness = Preferences::integer(store, Preferences::kBrightnessStepPercent);
    if (brightness >= 1)
        setBrightnessStep(static_cast<float>(static_cast<double>(brightness) / 100));
    const auto volume = Preferences::integer(store, Preferences::kVolumeStepPercent);
    if (volume >= 1) setVolumeStep(static_cast<float>(static_cast<double>(volume) / 100));
}

// --- Presses ---------------------------------------------------------------------------------

void KeyboardManager::adjust(const ExternalDisplay& display, VCPCode code, Direction direction,
                             float step) {
    schedulePress([weak = weak_from_this(), display, code, direction, step] {
        if (auto self = weak.lock()) self->runAdjustment(display, code, direction, step);
    });
}

void KeyboardManager::toggleDisplayMute(const ExternalDisplay& display) {
    schedulePress([weak = weak_from_this(), display] {
        if (auto self = weak.lock()) self->runMuteToggle(display);
    });
}

void KeyboardManager::schedulePress(std::function<void()> work) {
    {
        std::lock_guard lock(presses_->mutex);
        ++presses_->inFlight;
    }
    // The task owns its queue: when the task ends, the queue goes with it and the worker
    // thread finishes by itself.
    auto queue = std::make_shared<SerialQueue>(kKeyPressQueueLabel);
    SerialQueue& target = *queue;
    target.async([queue = std::move(queue), tracker = presses_, work = std::move(work)]() mutable {
        work();
        work = nullptr; // the display record and its transport
        queue.reset();
        {
            std::lock_guard lock(tracker->mutex);
            --tracker->inFlight;
        }
        tracker->idle.notify_all();
    });
}

std::size_t KeyboardManager::pressesInFlight() const {
    std::lock_guard lock(presses_->mutex);
    return presses_->inFlight;
}

void KeyboardManager::waitForPresses() const {
    std::unique_lock lock(presses_->mutex);
    presses_->idle.wait(lock, [&] { return presses_->inFlight == 0; });
}

// The read, the step, the write, the cache update and the posting of the indicator of one
// press run as one unit on the transfer queue (the DDC manager's own transfers nest inline
// there). Presses have queues of their own and are not ordered among themselves; without
// this, two repeats could read the same value, store their results in the opposite order to
// their writes (leaving the cache disagreeing with the monitor) or show their levels out of
// order. The bus sees exactly the same transfers either way.
void KeyboardManager::runAdjustment(const ExternalDisplay& display, VCPCode code,
                                    Direction direction, float step) {
    if (!display.transport || !ddcManager_) return;
    auto& ddc = *ddcManager_;
    const auto id = display.id;
    bool readFailed = false;
    DDCManager::globalDDCQueue().sync([&] {
        const auto value = ddc.read(display.transport, code);
        readFailed = !value;
        // A monitor that reports no range has nothing to step within.
        if (!value || value->max == 0) return;
        const auto next = stepValue(value->current, value->max, direction, step);
        if (next == value->current) return; // at an end already: nothing written or shown
        const auto frame = ddc::makeSetVCPRequest(rawValue(code), next);
        if (!ddc.performWrite(display.transport, frame)) return; // silently
        ddc.storeWritten(*display.transport, rawValue(code), next);

        const float level = fraction(next, value->max);
        if (code == VCPCode::brightness)
            postIndicator(
                [level, id](KeyboardManager& m) { m.osdManager_->showBrightness(level, id); });
        else if (code == VCPCode::volume)
            postIndicator(
                [level, id](KeyboardManager& m) { m.osdManager_->showVolume(level, id); });
    });
    if (readFailed)
        SystemLog::keyboard().error("Failed to read " + std::string(displayName(code)) +
                                    " for key adjustment");
}

void KeyboardManager::runMuteToggle(const ExternalDisplay& display) {
    if (!display.transport || !ddcManager_) return;
    auto& ddc = *ddcManager_;
    constexpr auto code = rawValue(VCPCode::mute);
    const auto id = display.id;
    DDCManager::globalDDCQueue().sync([&] {
        const auto value = ddc.read(display.transport, VCPCode::mute);
        if (!value) return; // silently
        // MCCS: 1 = muted, 2 = not muted; anything but 1 counts as not muted.
        const std::uint16_t next = value->current == 1 ? 2 : 1;
        const auto frame = ddc::makeSetVCPRequest(code, next);
        if (!ddc.performWrite(display.transport, frame)) return; // silently
        ddc.storeWritten(*display.transport, code, next);

        if (next == 1) {
            postIndicator([id](KeyboardManager& m) {
                auto& osd = *m.osdManager_;
                if (osd.useNativeOSD()) {
                    if (const auto& show = osd.showOSDFunc())
                        show(OSDManager::kMuteImage, id, 0, OSDManager::kTotalSegments);
                } else {
                    osd.showCustomOSD("speaker.slash.fill", 0, id);
                }
            });
        } else {
            // Unmuted: show the volume it comes back at, usually straight from the cache.
            postIndicator([id, transport = display.transport](KeyboardManager& m) {
                const auto volume = m.ddcManager_->read(transport, VCPCode::volume);
                if (volume && volume->max > 0)
                    m.osdManager_->showVolume(fraction(volume->current, volume->max), id);
            });
        }
    });
}

void KeyboardManager::postIndicator(std::function<void(KeyboardManager&)> show) {
    if (!platform_.mainQueue || !osdManager_) return;
    platform_.mainQueue->post([weak = weak_from_this(), show = std::move(show)] {
        auto self = weak.lock();
        if (!self || !self->indicatorsWanted()) return;
        show(*self);
    });
}

// Read at every show, so turning indicators off in the settings takes effect at once.
bool KeyboardManager::indicatorsWanted() const {
    return platform_.defaults ? Preferences::showOSD(*platform_.defaults) : true;
}

} // namespace pw
