#include "platform/sim/SimGamma.h"

#include <algorithm>
#include <limits>
#include <map>

namespace pw::sim {

SimGammaTables::Table SimGammaTables::uniform(std::vector<float> samples) {
    return Table{samples, samples, std::move(samples)};
}

SimGammaTables::Table SimGammaTables::identity(std::size_t samples) {
    std::vector<float> ramp(samples, 0.0f);
    for (std::size_t i = 0; i < samples && samples > 1; ++i)
        ramp[i] = static_cast<float>(i) / static_cast<float>(samples - 1);
    return uniform(std::move(ramp));
}

SimGammaTables::Table SimGammaTables::scaled(const Table& table, float factor) {
    auto times = [factor](std::vector<float> channel) {
        for (float& sample : channel)
            sample *= factor;
        return channel;
    };
    return Table{times(table.red), times(table.green), times(table.blue)};
}

struct SimGammaTables::State {
    std::shared_ptr<SimDisplayServices> displays;
    mutable std::mutex mutex;
    std::map<platform::DisplayID, Table> calibrated; // only those a test set
    std::map<platform::DisplayID, Table> installed;  // only displays not at calibrated
    std::map<platform::DisplayID, unsigned> failures; // reads still to fail
    std::vector<Call> calls;

    bool active(platform::DisplayID display) const {
        const auto list = displays->activeDisplayList(std::numeric_limits<std::uint32_t>::max());
        return std::find(list.begin(), list.end(), display) != list.end();
    }
    Table calibratedOf(platform::DisplayID display) const {
        const auto found = calibrated.find(display);
        return found != calibrated.end() ? found->second : identity();
    }
};

SimGammaTables::SimGammaTables(std::shared_ptr<SimDisplayServices> displays)
    : state_(std::make_unique<State>()) {
    state_->displays = std::move(displays);
}
SimGammaTables::~SimGammaTables() = default;

std::optional<SimGammaTables::Table> SimGammaTables::read(platform::DisplayID display) {
    const bool active = state_->active(display);
    std::lock_guard lock(state_->mutex);
    bool ok = active;
    if (auto found = state_->failures.find(display); ok && found != state_->failures.end() &&
                                                     found->second > 0) {
        --found->second;
        ok = false;
    }
    state_->calls.push_back(Call{Call::Kind::read, display, 0, ok});
    if (!ok) return std::nullopt;
    // What the display shows now.
    const auto found = state_->installed.find(display);
    return found != state_->installed.end() ? found->second : state_->calibratedOf(display);
}

bool SimGammaTables::apply(platform::DisplayID display, const Table& ramp) {
    const bool active = state_->active(display);
    std::lock_guard lock(state_->mutex);
    const bool ok = active && ramp.valid();
    state_->calls.push_back(Call{Call::Kind::apply, display, ramp.size(), ok});
    if (ok) state_->installed[display] = ramp;
    return ok;
}

void SimGammaTables::restoreAll() {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(Call{Call::Kind::restore, 0, 0, true});
    state_->installed.clear();
}

void SimGammaTables::setCalibrated(platform::DisplayID display, Table table) {
    std::lock_guard lock(state_->mutex);
    state_->calibrated[display] = std::move(table);
}

SimGammaTables::Table SimGammaTables::calibrated(platform::DisplayID display) const {
    std::lock_guard lock(state_->mutex);
    return state_->calibratedOf(display);
}

SimGammaTables::Table SimGammaTables::installed(platform::DisplayID display) const {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->installed.find(display);
    return found != state_->installed.end() ? found->second : state_->calibratedOf(display);
}

bool SimGammaTables::showsCalibrated(platform::DisplayID display) const {
    std::lock_guard lock(state_->mutex);
    return !state_->installed.contains(display);
}

void SimGammaTables::failNextReads(platform::DisplayID display, unsigned count) {
    std::lock_guard lock(state_->mutex);
    state_->failures[display] = count;
}

std::vector<SimGammaTables::Call> SimGammaTables::calls() const {
    std::lock_guard lock(state_->mutex);
    return state_->calls;
}

std::size_t SimGammaTables::count(Call::Kind kind, platform::DisplayID display) const {
    std::lock_guard lock(state_->mutex);
    return static_cast<std::size_t>(
        std::count_if(state_->calls.begin(), state_->calls.end(), [&](const Call& call) {
            return call.kind == kind && (display == 0 || call.display == display);
        }));
}

void SimGammaTables::clearCalls() {
    std::lock_guard lock(state_->mutex);
    state_->calls.clear();
}

} // namespace pw::sim
