#include "app/StartupActions.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"

#include <utility>

namespace pw {

namespace {
void logStartup(std::string_view message) { DiagnosticLog::log("App", message); }
} // namespace

StartupActions::StartupActions(platform::Platform platform,
                               std::shared_ptr<DisplayManager> displayManager,
                               std::shared_ptr<DDCManager> ddcManager)
    : platform_(std::move(platform)), displayManager_(std::move(displayManager)),
      ddcManager_(std::move(ddcManager)) {}

StartupActions::~StartupActions() {
    if (token_ != 0) displayManager_->unsubscribe(token_);
}

void StartupActions::start() {
    if (std::exchange(started_, true)) return;
    const auto displays = ddcCapableDisplays(displayManager_->displays());
    const auto action = platform_.defaults ? Preferences::startupAction(*platform_.defaults)
                                           : Preferences::StartupAction::doNothing;
    logStartup("Startup action: " + std::string(Preferences::label(action)));
    switch (action) {
    case Preferences::StartupAction::restoreLast:
        for (const auto& display : displays)
            restore(display);
        break;
    case Preferences::StartupAction::readFromDisplay:
        if (!displays.empty()) displayManager_->refreshDisplays();
        break;
    case Preferences::StartupAction::doNothing:
        break;
    }
    for (const auto& display : displays)
        present_.insert(display.preferenceKey());
    token_ = displayManager_->subscribe(
        [weak = weak_from_this()](const std::vector<ExternalDisplay>& list) {
            if (auto self = weak.lock()) self->listChanged(list);
        });
}

void StartupActions::listChanged(const std::vector<ExternalDisplay>& displays) {
    // Refreshes change records in place and call here too; only a key that was not in
    // the previous list is a monitor that came (back).
    std::set<std::string> now;
    std::vector<const ExternalDisplay*> appeared;
    for (const auto& display : displays) {
        if (!display.ddcSupported) continue;
        auto key = display.preferenceKey();
        if (!present_.contains(key)) appeared.push_back(&display);
        now.insert(std::move(key));
    }
    present_ = std::move(now);
    if (appeared.empty() || !platform_.defaults) return;
    if (Preferences::startupAction(*platform_.defaults) != Preferences::StartupAction::restoreLast)
        return;
    for (const auto* display : appeared)
        restore(*display);
}

std::size_t StartupActions::afterWake() {
    if (!platform_.defaults ||
        Preferences::startupAction(*platform_.defaults) != Preferences::StartupAction::restoreLast)
        return 0;
    std::size_t queued = 0;
    for (const auto& display : ddcCapableDisplays(displayManager_->displays()))
        queued += restore(display);
    return queued;
}

std::size_t StartupActions::restore(const ExternalDisplay& display) {
    if (!platform_.defaults || !display.transport) return 0;
    auto& store = *platform_.defaults;
    const auto key = display.preferenceKey();
    std::vector<std::pair<VCPCode, std::uint16_t>> writes;
    auto collect = [&](std::string_view option, VCPCode code) {
        if (const auto value = Preferences::lastValue(store, key, option))
            writes.emplace_back(code, *value);
    };
    // A display on software brightness never had a DDC brightness set through us, and
    // writing an old one would fight the dimming the user chose.
    if (!Preferences::forceSoftwareBrightness(store, key))
        collect(Preferences::kLastBrightness, VCPCode::brightness);
    collect(Preferences::kLastVolume, VCPCode::volume);
    collect(Preferences::kLastInput, VCPCode::inputSource);
    const std::size_t queued = writes.size();
    for (std::size_t i = 0; i < queued; ++i) {
        DDCManager::Completion done;
        // The write queue keeps order, so after the last write the popover can read the
        // monitor back and show what it now has.
        if (i + 1 == queued)
            done = [manager = std::weak_ptr<DisplayManager>(displayManager_)](bool) {
                if (auto displays = manager.lock()) displays->refreshDisplays();
            };
        ddcManager_->write(display.transport, writes[i].first, writes[i].second, std::move(done));
    }
    if (queued > 0)
        logStartup("Restoring " + std::to_string(queued) + " last value(s) of " +
                   displayTitle(display, store));
    return queued;
}

} // namespace pw
