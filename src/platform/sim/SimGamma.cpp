#include "platform/sim/SimGamma.h"

#include <algorithm>
#include <limits>
#include <map>

namespace pw::sim {

SimGammaTables::Table SimGammaTables::Table::uniform(std::vector<float> samples) {
    return Table{samples, samples, std::move(samples)};
}

SimGammaTables::Table SimGammaTables::Table::identity(std::size_t samples) {
    std::vector<float> ramp(samples, 0.0f);
    for (std::size_t i = 0; i < samples && samples > 1; ++i)
        ramp[i] = static_cast<float>(i) / static_cast<float>(samples - 1);
    return uniform(std::move(ramp));
}

SimGammaTables::Table SimGammaTables::Table::scaled(const Table& table, float factor) {
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
    struct Failure {
        unsigned remaining = 0;
        std::int32_t error = 0;
    };
    std::map<platform::DisplayID, Failure> failures;
    std::vector<Call> calls;

    bool active(platform::DisplayID display) const {
        const auto list = displays->activeDisplayList(std::numeric_limits<std::uint32_t>::max());
        return std::find(list.begin(), list.end(), display) != list.end();
    }
    Table calibratedOf(platform::DisplayID display) const {
        const auto found = calibrated.find(display);
        return found != calibrated.end() ? found->second : Table::identity();
    }
};

SimGammaTables::SimGammaTables(std::shared_ptr<SimDisplayServices> displays)
    : state_(std::make_unique<State>()) {
    state_->displays = std::move(displays);
}
SimGammaTables::~SimGammaTables() = default;

std::int32_t SimGammaTables::getTransferByTable(platform::DisplayID display, std::uint32_t capacity,
                                                float* red, float* green, float* blue,
                                                std::uint32_t& sampleCount) {
    const bool active = state_->active(display);
    std::lock_guard lock(state_->mutex);
    auto record = [&](std::int32_t result) {
        state_->calls.push_back(Call{Call::Kind::get, display, capacity, result});
        return result;
    };
    if (!active) return record(kNotActive);
    if (auto found = state_->failures.find(display);
        found != state_->failures.end() && found->second.remaining > 0) {
        --found->second.remaining;
        return record(found->second.error);
    }
    // Like the real call: what the display shows now, at most `capacity` samples written,
    // the real count reported.
    const auto found = state_->installed.find(display);
    const Table table =
        found != state_->installed.end() ? found->second : state_->calibratedOf(display);
    const auto fill = std::min<std::size_t>(capacity, table.sampleCount());
    std::copy_n(table.red.begin(), fill, red);
    std::copy_n(table.green.begin(), fill, green);
    std::copy_n(table.blue.begin(), fill, blue);
    sampleCount = static_cast<std::uint32_t>(table.sampleCount());
    return record(0);
}

std::int32_t SimGammaTables::setTransferByTable(platform::DisplayID display,
                                                std::uint32_t sampleCount, const float* red,
                                                const float* green, const float* blue) {
    const bool active = state_->active(display);
    std::lock_guard lock(state_->mutex);
    const std::int32_t result = active ? 0 : kNotActive;
    state_->calls.push_back(Call{Call::Kind::set, display, sampleCount, result});
    if (!active) return result;
    auto channel = [sampleCount](const float* samples) {
        return sampleCount == 0 ? std::vector<float>{}
                                : std::vector<float>(samples, samples + sampleCount);
    };
    state_->installed[display] = Table{channel(red), channel(green), channel(blue)};
    return result;
}

void SimGammaTables::restoreColorSyncSettings() {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(Call{Call::Kind::restore, 0, 0, 0});
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

void SimGammaTables::failNextCaptures(platform::DisplayID display, unsigned count,
                                      std::int32_t error) {
    std::lock_guard lock(state_->mutex);
    // A failure must read as one: 0 would be success with nothing written.
    state_->failures[display] = State::Failure{count, error != 0 ? error : 1000};
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
