#include "gamma/GammaManager.h"

#include "base/SystemLog.h"

#include <algorithm>
#include <string>

namespace pw {

namespace {

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
        tables_->restoreAll();
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
    const platform::GammaRamp& captured = found->second;
    const auto f = static_cast<float>(factor);
    tables_->apply(display, {scaled(captured.red, f), scaled(captured.green, f),
                             scaled(captured.blue, f)});
}

void GammaManager::captureDefaultTable(platform::DisplayID display) {
    auto ramp = tables_ ? tables_->read(display) : std::nullopt;
    // An empty or uneven ramp could never be installed again: no better than none.
    if (!ramp || !ramp->valid()) {
        SystemLog::display().error(
            "Failed to capture gamma table for display " + std::to_string(display) +
            (tables_ ? "" : ": this machine offers no gamma tables"));
        undimmable_.insert(display);
        return;
    }
    const std::size_t samples = ramp->size();
    undimmable_.erase(display);
    defaultTables_[display] = std::move(*ramp);
    SystemLog::display().info("Captured gamma table for display " + std::to_string(display) + " (" +
                              std::to_string(samples) + " samples)");
}

void GammaManager::restoreAll() {
    currentBrightness_.clear();
    if (tables_) tables_->restoreAll();
}

} // namespace pw
