#include "keyboard/KeyboardManager.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "base/SystemLog.h"
#include "ddc/DDCManager.h"
#include "ddc/DDCMessages.h"
#include "display/DisplayManager.h"
#include "gamma/BrightnessCurve.h"
#include "gamma/GammaManager.h"
#include "osd/OSDManager.h"

#include <algorithm>
#include <string>
#include <vector>

namespace pw {

namespace {

// The widest step a 16-bit feature can take.
constexpr std::uint32_t kWidestStep = 65535;

// The keys the manager takes: brightness, volume and mute, never the playback keys; and
// over a built-in panel, none (the system dims its own panel).
platform::KeyWish displayKeys() {
    return {{MediaKey::brightnessUp, MediaKey::brightnessDown, MediaKey::volumeUp,
             MediaKey::volumeDown, MediaKey::mute},
            platform::KeyPressMode::keyDown,
            /*onBuiltInPanel=*/false};
}

// The level an indicator shows; a value above its maximum shows as full.
float fraction(std::uint16_t value, std::uint16_t max) {
    return std::min(1.0f, static_cast<float>(value) / static_cast<float>(max));
}

} // namespace

KeyboardManager::KeyboardManager(platform::Platform platform,
                                 std::shared_ptr<DisplayManager> displayManager,
                                 std::shared_ptr<DDCManager> ddcManager,
                                 std::shared_ptr<OSDManager> osdManager,
                                 std::shared_ptr<GammaManager> gammaManager)
    : platform_(std::move(platform)), displayManager_(std::move(displayManager)),
      ddcManager_(std::move(ddcManager)), osdManager_(std::move(osdManager)),
      gammaManager_(std::move(gammaManager)) {}

KeyboardManager::~KeyboardManager() {
    if (keysStarted_ && platform_.mediaKeys) platform_.mediaKeys->stop();
    joinWorkers();
}

void KeyboardManager::joinWorkers() {
    // Work still queued runs its bookkeeping only; the bus is not touched for a manager
    // on its way out.
    closing_ = true;
    workers_.clear();
    closing_ = false;
}

// --- The tap -------------------------------------------------------------------------------

void KeyboardManager::start() {
    // Without a key source the machine has said why (or has no keyboard to speak of).
    if (auto& keys = platform_.mediaKeys) {
        keys->want(displayKeys());
        // The source calls from its own thread and never waits: the key is posted.
        auto onKey = [weak = weak_from_this(), main = platform_.mainQueue](
                         const platform::MediaKeyEvent& event) {
            if (!main) return;
            main->post([weak, event] {
                if (auto self = weak.lock()) self->handle(event);
            });
        };
        keysStarted_ = true;
        if (const auto error = keys->start(std::move(onKey))) {
            // The program runs on without media keys. A desktop program's standard output
            // is read by no one, so the reason goes where a user or a bug report finds it.
            const auto text = platform::description(*error);
            SystemLog::keyboard().error(text);
            DiagnosticLog::log("Keyboard", text);
        }
    }
    SystemLog::keyboard().info("Keyboard monitoring started");
}

void KeyboardManager::stop() {
    if (keysStarted_ && platform_.mediaKeys) platform_.mediaKeys->stop();
    keysStarted_ = false;
    joinWorkers();
    SystemLog::keyboard().info("Keyboard monitoring stopped");
}

void KeyboardManager::handle(const platform::MediaKeyEvent& event) {
    // An auto-repeat is handled like a fresh press; the modifiers play no part.
    const auto display = targetDisplay();
    if (!display) return;
    switch (event.key) {
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

    if (auto* screens = platform_.screens.get()) {
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

    // Some monitors report a current value above their own maximum. Limiting a step up to
    // the maximum would then lower the value, the opposite of the key; so up leaves such a
    // value alone, and down starts from the maximum, the top of the range the key moves in.
    if (direction == Direction::up)
        return current >= max
                   ? current
                   : static_cast<std::uint16_t>(std::min<std::uint32_t>(current + s, max));
    const std::uint32_t from = std::min(current, max);
    return from > s ? static_cast<std::uint16_t>(from - s) : std::uint16_t{0};
}

// --- Presses ---------------------------------------------------------------------------------

void KeyboardManager::adjust(const ExternalDisplay& display, VCPCode code, Direction direction,
                             float step) {
    // Read at every press, so the settings' toggle applies to the next key.
    if (code == VCPCode::brightness && platform_.defaults &&
        Preferences::forceSoftwareBrightness(*platform_.defaults, display.preferenceKey())) {
        adjustSoftwareBrightness(display.id, direction, step);
        return;
    }
    KeyWork work;
    work.display = display;
    work.code = code;
    work.steps.push_back({direction, step, 1});
    schedule(std::move(work));
}

// No bus work: the gamma tables are the main thread's.
void KeyboardManager::adjustSoftwareBrightness(platform::DisplayID id, Direction direction,
                                               float step) {
    auto gamma = gammaManager();
    if (!gamma) return;
    const auto& levels = gamma->currentBrightness();
    const auto found = levels.find(id);
    const double current = found == levels.end() ? 1.0 : std::min(1.0, found->second);
    const double delta = std::clamp(static_cast<double>(step), 0.0, 1.0);
    const double next =
        std::clamp(direction == Direction::up ? current + delta : current - delta,
                   BrightnessCurve::kSoftwareFloor, 1.0);
    if (next == current) return;
    gamma->setBrightness(id, next);
    if (osdManager_ && indicatorsWanted()) osdManager_->showBrightness(static_cast<float>(next), id);
}

std::shared_ptr<GammaManager> KeyboardManager::gammaManager() const {
    return gammaManager_;
}

void KeyboardManager::toggleDisplayMute(const ExternalDisplay& display) {
    KeyWork work;
    work.display = display;
    work.code = VCPCode::mute;
    work.toggles = 1;
    // Settled here, on the main thread, like every other look at the settings: with
    // indicators off an unmute does not even read the volume.
    work.showVolumeAfterUnmute = indicatorsWanted();
    schedule(std::move(work));
}

// A held key on a slow or silent monitor must not pile up one thread and one stale step
// per repeat. Each display has one lane: the unit running, and behind it at most one
// waiting unit per feature. A repeat arriving meanwhile joins the waiting unit of its
// feature, which steps from whatever value the running unit leaves (read again, usually
// from the cache) and writes once, so the monitor ends where the presses say and the bus
// carries two units however many repeats came.
void KeyboardManager::schedule(KeyWork work) {
    work.presses = 1;
    const auto id = work.display.id;
    {
        std::lock_guard lock(presses_->mutex);
        ++presses_->inFlight;
        if (const auto lane = presses_->lanes.find(id); lane != presses_->lanes.end()) {
            auto& waiting = lane->second.waiting;
            const auto same = std::find_if(waiting.begin(), waiting.end(),
                                           [&](const KeyWork& w) { return w.code == work.code; });
            if (same == waiting.end()) {
                waiting.push_back(std::move(work));
                return;
            }
            // The latest record wins: it carries the transport the display has now.
            same->display = std::move(work.display);
            same->presses += 1;
            same->toggles += work.toggles;
            same->showVolumeAfterUnmute = work.showVolumeAfterUnmute;
            auto& steps = same->steps; // equal steps in a row are kept as a count
            for (const auto& run : work.steps) {
                if (!steps.empty() && steps.back().direction == run.direction &&
                    steps.back().step == run.step)
                    steps.back().count += run.count;
                else
                    steps.push_back(run);
            }
            return;
        }
        presses_->lanes.emplace(id, DisplayLane{});
    }
    // The display's worker: made at its first key and kept, so a held key costs no thread.
    auto& worker = workers_[id];
    if (!worker) worker = std::make_unique<SerialQueue>(kKeyPressQueueLabel);
    worker->async([this, work = std::move(work)]() mutable { drainLane(std::move(work)); });
}

void KeyboardManager::drainLane(KeyWork work) {
    const auto id = work.display.id;
    auto& tracker = *presses_;
    for (;;) {
        if (!closing_) {
            if (work.code == VCPCode::mute)
                runMuteToggle(work);
            else
                runAdjustment(work);
        }
        const auto presses = work.presses;
        work = KeyWork{}; // the display record and its transport
        std::optional<KeyWork> next;
        {
            std::lock_guard lock(tracker.mutex);
            auto& waiting = tracker.lanes.at(id).waiting;
            if (waiting.empty()) {
                tracker.lanes.erase(id);
            } else {
                next = std::move(waiting.front());
                waiting.pop_front();
            }
            tracker.inFlight -= presses;
        }
        tracker.idle.notify_all();
        if (!next) return;
        work = std::move(*next);
    }
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
// unit run together on the transfer queue (the DDC manager's own transfers nest inline
// there). Units of one display are already in order on its lane, but those of two displays,
// and the popover's reads and writes, are not; inside one task nothing can slip between the
// read and the store, so the cache ends equal to the monitor and indicators come in the
// order values reached the monitors. The bus sees exactly the same transfers either way.
void KeyboardManager::runAdjustment(const KeyWork& work) {
    const auto& display = work.display;
    if (!display.transport || !ddcManager_) return;
    auto& ddc = *ddcManager_;
    const auto code = work.code;
    const auto id = display.id;
    bool readFailed = false;
    std::optional<std::uint16_t> written;
    ddc.globalDDCQueue().sync([&] {
        const auto value = ddc.read(display.transport, code);
        readFailed = !value;
        // A monitor that reports no range has nothing to step within.
        if (!value || value->max == 0) return;
        auto next = value->current;
        for (const auto& run : work.steps) {
            for (std::uint32_t i = 0; i < run.count; ++i) {
                const auto stepped = stepValue(next, value->max, run.direction, run.step);
                if (stepped == next) break; // at an end: further equal steps stay there too
                next = stepped;
            }
        }
        if (next == value->current) return; // at an end already: nothing written or shown
        const auto frame = ddc::makeSetVCPRequest(rawValue(code), next);
        if (!ddc.performWrite(display.transport, frame)) return; // silently
        ddc.storeWritten(*display.transport, rawValue(code), next);
        written = next;

        const float level = fraction(next, value->max);
        if (code == VCPCode::brightness)
            postIndicator(
                [level, id](KeyboardManager& m) { m.osdManager_->showBrightness(level, id); });
        else if (code == VCPCode::volume)
            postIndicator(
                [level, id](KeyboardManager& m) { m.osdManager_->showVolume(level, id); });
    });
    // Stored outside the transfer queue: a settings file written to disk must not hold
    // the bus.
    if (written) rememberLastValue(display, code, *written);
    if (readFailed)
        SystemLog::keyboard().error("Failed to read " + std::string(displayName(code)) +
                                    " for key adjustment");
}

void KeyboardManager::runMuteToggle(const KeyWork& work) {
    // An even number of toggles folded together leaves the monitor as it is.
    if (work.toggles % 2 == 0) return;
    const auto& display = work.display;
    if (!display.transport || !ddcManager_) return;
    auto& ddc = *ddcManager_;
    constexpr auto code = rawValue(VCPCode::mute);
    const auto id = display.id;
    ddc.globalDDCQueue().sync([&] {
        const auto value = ddc.read(display.transport, VCPCode::mute);
        if (!value) return; // silently
        // MCCS: 1 = muted, 2 = not muted; anything but 1 counts as not muted.
        const std::uint16_t next = value->current == 1 ? 2 : 1;
        const auto frame = ddc::makeSetVCPRequest(code, next);
        if (!ddc.performWrite(display.transport, frame)) return; // silently
        ddc.storeWritten(*display.transport, code, next);

        if (next == 1) {
            postIndicator([id](KeyboardManager& m) { m.osdManager_->showMute(id); });
            return;
        }
        // Unmuted: show the volume it comes back at, usually straight from the cache. The
        // read belongs to this unit, never to the main thread, which the tap waits on.
        if (!work.showVolumeAfterUnmute) return;
        const auto volume = ddc.read(display.transport, VCPCode::volume);
        if (!volume || volume->max == 0) return; // silently
        const float level = fraction(volume->current, volume->max);
        postIndicator([level, id](KeyboardManager& m) { m.osdManager_->showVolume(level, id); });
    });
}

void KeyboardManager::rememberLastValue(const ExternalDisplay& display, VCPCode code,
                                        std::uint16_t value) {
    if (!platform_.defaults) return;
    if (code == VCPCode::brightness)
        Preferences::setLastValue(*platform_.defaults, display.preferenceKey(),
                                  Preferences::kLastBrightness, value);
    else if (code == VCPCode::volume)
        Preferences::setLastValue(*platform_.defaults, display.preferenceKey(),
                                  Preferences::kLastVolume, value);
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
    return osdManager_ && osdManager_->wanted();
}

} // namespace pw
