#include "display/DisplayManager.h"

#include "base/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/Enumeration.h"
#include "support/SerialQueue.h"

#include <algorithm>
#include <chrono>

namespace pw {

namespace {

constexpr std::string_view kRefreshQueueLabel = "com.panelwright.refresh";
constexpr std::string_view kEnumerationQueueLabel = "com.panelwright.enumeration";

std::string num(std::uint64_t value) {
    return std::to_string(value);
}

} // namespace

DisplayManager::DisplayManager(platform::Platform platform, std::shared_ptr<DDCManager> ddcManager)
    : platform_(std::move(platform)), ddcManager_(std::move(ddcManager)),
      enumerationWorker_(std::make_unique<SerialQueue>(std::string(kEnumerationQueueLabel))),
      refreshWorker_(std::make_unique<SerialQueue>(std::string(kRefreshQueueLabel))) {}

DisplayManager::~DisplayManager() {
    // The workers' tasks use this object: they stand down, and the workers are joined,
    // before anything they use goes. A task running now finishes its bus transfer first.
    stopping_ = true;
    refreshWorker_.reset();
    enumerationWorker_.reset();
}

platform::Clock::TimePoint DisplayManager::now() const {
    return platform_.clock ? platform_.clock->now() : platform::Clock::TimePoint{};
}

void DisplayManager::publish(std::vector<ExternalDisplay> displays,
                             platform::Clock::TimePoint started) {
    const auto count = displays.size();
    const auto withDDC = ddcCapableDisplays(displays).size();
    // The cache forgets the channels of the old list before anyone sees the new one.
    std::vector<std::shared_ptr<I2CTransport>> transports;
    for (const auto& display : displays)
        transports.push_back(display.transport);
    ddcManager_->displayListRebuilt(transports, started);
    list_.change([&](std::vector<ExternalDisplay>& list) {
        list = std::move(displays);
        return true;
    });
    SystemLog::display().info("Found " + num(count) + " external display(s), " + num(withDDC) +
                              " with DDC");
}

// --- Enumeration ----------------------------------------------------------------------

void DisplayManager::enumerateDisplays(std::optional<platform::DisplayID> only) {
    const auto started = now();
    auto list = buildList(only);
    platform_.mainQueue->post([weak = weak_from_this(), list = std::move(list), started]() mutable {
        if (auto self = weak.lock()) self->publish(std::move(list), started);
    });
}

void DisplayManager::enumerateDisplaysInBackground(Completion done) {
    if (enumerating_) {
        // Whatever the running pass saw may already be out of date: one more pass after
        // it serves this request and any others that arrive before it starts.
        passRequested_ = true;
        requestedDone_.push_back(std::move(done));
        return;
    }
    enumerating_ = true;
    runningDone_.push_back(std::move(done));
    startBackgroundPass();
}

void DisplayManager::startBackgroundPass() {
    // The worker holds no reference to the manager: the manager joins it before it goes,
    // and the list goes back to the main queue with a weak one, so a manager let go while
    // the probes ran ends on the main thread and nothing is left holding it.
    enumerationWorker_->async([this, weak = weak_from_this(), mainQueue = platform_.mainQueue] {
        if (stopping_) return;
        const auto started = now();
        auto list = buildList();
        mainQueue->post([weak, list = std::move(list), started]() mutable {
            if (auto self = weak.lock()) self->passPublished(std::move(list), started);
        });
    });
}

void DisplayManager::passPublished(std::vector<ExternalDisplay> list,
                                   platform::Clock::TimePoint started) {
    publish(std::move(list), started);
    auto done = std::move(runningDone_);
    runningDone_.clear();
    if (passRequested_) {
        passRequested_ = false;
        runningDone_ = std::move(requestedDone_);
        requestedDone_.clear();
        startBackgroundPass();
    } else {
        enumerating_ = false;
    }
    for (auto& completion : done)
        if (completion) completion();
}

std::vector<ExternalDisplay> DisplayManager::buildList(std::optional<platform::DisplayID> only) {
    return buildDisplayList({platform_.monitors.get(), *ddcManager_, platform_.defaults.get(),
                             platform_.clock},
                            only);
}

// --- Hot-plug ---------------------------------------------------------------------------

void DisplayManager::scheduleEnumeration() {
    // A trailing debounce: every report restarts the wait, so a dock announcing several
    // monitors costs one enumeration, a second after its last report.
    const auto generation = ++hotPlugGeneration_;
    platform_.mainQueue->postAfter(kHotPlugDelay, [weak = weak_from_this(), generation] {
        auto self = weak.lock();
        if (!self || self->hotPlugGeneration_ != generation) return;
        self->enumerateDisplaysInBackground();
    });
}

void DisplayManager::startMonitoring() {
    if (!platform_.monitors || !platform_.mainQueue) return;
    // Reports are answered a second after the last of a burst: the machine is still
    // settling when a report arrives, and a dock reports each of its monitors.
    if (platform_.monitors->watch([weak = weak_from_this()] {
            if (auto self = weak.lock()) self->scheduleEnumeration();
        }))
        SystemLog::display().info("Display monitoring started");
}

// --- Refresh ----------------------------------------------------------------------------

DisplayManager::RecordKey DisplayManager::keyOf(const ExternalDisplay& display) {
    return RecordKey{display.id, display.transport ? display.transport->endpointKey() : 0};
}

void DisplayManager::refreshDisplays(Completion completion) {
    // The displays as listed now; each reading goes back with the key of the record it was
    // read for, never by position, since the list may be rebuilt while the refresh reads.
    auto records = ddcCapableDisplays(displays());
    refreshWorker_->async([this, weak = weak_from_this(), mainQueue = platform_.mainQueue,
                           records = std::move(records),
                           completion = std::move(completion)]() mutable {
        std::vector<Reading> readings;
        for (const auto& record : records) {
            if (stopping_) return; // the manager is going: no more bus reads
            const auto key = keyOf(record);
            // A display that has left the list meanwhile is not worth a bus read.
            auto listed = list_.displays();
            if (!DisplayList::find(listed, key.id, key.channel)) continue;
            auto& ddc = *ddcManager_;
            readings.push_back({key, ddc.read(record.transport, VCPCode::brightness),
                                ddc.read(record.transport, VCPCode::contrast),
                                ddc.read(record.transport, VCPCode::volume),
                                ddc.read(record.transport, VCPCode::mute),
                                ddc.read(record.transport, VCPCode::inputSource)});
        }
        mainQueue->post([weak, readings = std::move(readings), done = std::move(completion)] {
            if (auto self = weak.lock()) self->apply(readings);
            if (done) done();
        });
    });
}

void DisplayManager::apply(const std::vector<Reading>& readings) {
    using Field = std::optional<DDCReadResult> ExternalDisplay::*;
    list_.change([&](std::vector<ExternalDisplay>& list) {
        bool changed = false;
        for (const auto& reading : readings) {
            auto* record = DisplayList::find(list, reading.key.id, reading.key.channel);
            if (!record) continue;
            const std::pair<Field, const std::optional<DDCReadResult>*> values[] = {
                {&ExternalDisplay::brightness, &reading.brightness},
                {&ExternalDisplay::contrast, &reading.contrast},
                {&ExternalDisplay::volume, &reading.volume},
                {&ExternalDisplay::mute, &reading.mute},
                {&ExternalDisplay::inputSource, &reading.inputSource},
            };
            for (const auto& [field, value] : values) {
                if (!*value) continue;
                record->*field = *value;
                changed = true;
            }
            // The status follows the values the controls show; mute or input source alone
            // leave it.
            if (reading.brightness || reading.contrast || reading.volume) {
                record->ddcStatus = DDCStatus::verified;
                changed = true;
            }
        }
        return changed;
    });
}

} // namespace pw
