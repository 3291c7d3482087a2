#include "gamma/GammaManager.h"

#include "app/SystemLog.h"

#include <algorithm>
#include <string>

namespace pw {

namespace {

// What a capture reports when the machine has no gamma facility at all (CoreGraphics'
// "not implemented"), so the failure reads like any other capture failure.
constexpr std::int32_t kNoGammaFacility = 1006;

std::vector<float> scaled(const std::vector<float>& samples, float factor) {
    std::vector<float> out(samples.size());
    std::transform(samples.begin(), samples.end(), out.begin(),
                   [factor](float sample) { return sample * factor; });
    return out;
}

} // namespace

GammaManager::GammaManager(std::shared_ptr<platform::GammaTables> tables)
    : tables_(std::move(tables)) {}

void GammaManager::setBrightness(platform::DisplayID display, double factor) {
    // Written so that NaN fails the first test and lands on 0.
    if (!(factor > 0))
        factor = 0;
    else if (factor > 1)
        factor = 1;

    if (!defaultTables_.contains(display)) captureDefaultTable(display);
    const auto found = defaultTables_.find(display);
    if (found == defaultTables_.end()) {
        SystemLog::display().error("No gamma table for display " + std::to_string(display));
        return;
    }
    const auto previous = currentBrightness_.find(display);
    const bool wasUndimmed = previous != currentBrightness_.end() && previous->second >= 1.0;
    currentBrightness_[display] = factor;

    if (factor >= 1.0) {
        // The system can only put every display back at once, so the others that are
        // dimmed get their own levels again straight away. A slider moving above the
        // dimming range asks for 1 at every step; a display already undimmed is left as it
        // is rather than making the dimmed ones flicker each time.
        if (!tables_ || wasUndimmed) return;
        tables_->restoreColorSyncSettings();
        for (const auto& [other, level] : currentBrightness_)
            if (other != display && level < 1.0) install(other, level);
        return;
    }
    install(display, factor);
}

// Always scaled from the captured table, never from what is installed now, so repeated
// steps do not compound.
void GammaManager::install(platform::DisplayID display, double factor) {
    const auto found = defaultTables_.find(display);
    if (!tables_ || found == defaultTables_.end()) return;
    const GammaTable& captured = found->second;
    const auto f = static_cast<float>(factor);
    const auto red = scaled(captured.red, f);
    const auto green = scaled(captured.green, f);
    const auto blue = scaled(captured.blue, f);
    tables_->setTransferByTable(display, captured.sampleCount, red.data(), green.data(),
                                blue.data());
}

void GammaManager::captureDefaultTable(platform::DisplayID display) {
    std::vector<float> red(kCapacity, 0.0f), green(kCapacity, 0.0f), blue(kCapacity, 0.0f);
    std::uint32_t count = 0;
    const std::int32_t error = tables_
                                   ? tables_->getTransferByTable(display, kCapacity, red.data(),
                                                                 green.data(), blue.data(), count)
                                   : kNoGammaFacility;
    if (error != 0) {
        SystemLog::display().error("Failed to capture gamma table for display " +
                                   std::to_string(display) + ": " + std::to_string(error));
        undimmable_.insert(display);
        return;
    }

    // A platform that reports more samples than the buffers hold has still written at
    // most the capacity; the table keeps what was written, so its arrays always hold
    // exactly `sampleCount` samples and installing it never reads past them.
    const std::uint32_t kept = std::min(count, kCapacity);
    red.resize(kept);
    green.resize(kept);
    blue.resize(kept);
    undimmable_.erase(display);
    defaultTables_[display] = GammaTable{std::move(red), std::move(green), std::move(blue), kept};
    SystemLog::display().info("Captured gamma table for display " + std::to_string(display) + " (" +
                              std::to_string(count) + " samples)");
}

void GammaManager::restoreAll() {
    currentBrightness_.clear();
    if (tables_) tables_->restoreColorSyncSettings();
}

} // namespace pw
