#pragma once

#include "display/DisplayList.h"
#include "display/ExternalDisplay.h"
#include "platform/Platform.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace pw {

class DDCManager;
class SerialQueue;

// Owns the published list of external monitors: builds it from the machine's monitors
// (name each, probe each with one DDC read), rebuilds it one second after a burst of
// hot-plug reports, and refreshes the values in it on request.
//
// The list is changed only on the main queue; `displays()` may be read from any thread
// and always yields a whole, consistent copy. Observers are called on the main queue
// once per published list: once per enumeration pass, once per refresh. The main queue
// never waits for the bus: probes and reads run on the manager's own two workers
// ("com.panelwright.enumeration", "com.panelwright.refresh"), which it joins when it
// goes; only their results come back to the main queue, and only while it lives.
class DisplayManager : public std::enable_shared_from_this<DisplayManager> {
public:
    using Observer = DisplayList::Observer;
    using ObserverToken = DisplayList::ObserverToken;
    using Completion = std::function<void()>;

    static constexpr std::chrono::milliseconds kHotPlugDelay{1000};

    DisplayManager(platform::Platform platform, std::shared_ptr<DDCManager> ddcManager);
    ~DisplayManager();

    DisplayManager(const DisplayManager&) = delete;
    DisplayManager& operator=(const DisplayManager&) = delete;

    // --- The published list ---------------------------------------------------------

    std::vector<ExternalDisplay> displays() const { return list_.displays(); }
    ObserverToken subscribe(Observer observer) { return list_.subscribe(std::move(observer)); }
    void unsubscribe(ObserverToken token) { list_.unsubscribe(token); }

    // --- Enumeration ----------------------------------------------------------------

    // Rebuilds the list from scratch on the calling thread, blocking while it probes each
    // monitor, and publishes it later on the main queue. For the command line and tests:
    // an application must not call it on its main thread.
    // With `only`, the list holds that display alone and only its monitor is probed; the
    // machine still pairs every display with its channel, so the display keeps the
    // channel, name and key a full enumeration gives it.
    void enumerateDisplays(std::optional<platform::DisplayID> only = std::nullopt);

    // Main queue only. Rebuilds the list on the enumeration worker, publishes it on the
    // main queue and then runs `done` there. Never two at a time: a request made while one
    // runs is served by one more pass right after it (however many requests came), and
    // their `done`s run once that pass is published. Nothing runs if the manager is gone.
    void enumerateDisplaysInBackground(Completion done = {});
    // Main queue only: a background enumeration is running or waiting to run.
    bool enumerationInProgress() const { return enumerating_; }

    // --- Hot-plug and refresh -------------------------------------------------------

    // Starts the machine's hot-plug reports. Reports within one second of each other end
    // in a single background enumeration, one second after the last. Call once, on the
    // main thread, after the first enumeration.
    void startMonitoring();

    // Which record a reading belongs to: the display and the channel it was read through.
    // A record rebuilt by an enumeration gets a new channel, so a reading taken before
    // never lands on it, nor on a record that merely took over its place in the list.
    struct RecordKey {
        platform::DisplayID id = 0;
        std::int64_t channel = 0; // the transport's endpointKey
        friend bool operator==(const RecordKey&, const RecordKey&) = default;
    };
    static RecordKey keyOf(const ExternalDisplay& display);

    // What one refresh read from one display.
    struct Reading {
        RecordKey key;
        std::optional<DDCReadResult> brightness, contrast, volume, mute, inputSource;
    };

    // Re-reads brightness, contrast, volume, mute and input source of every DDC-capable
    // display listed at the call, on the refresh worker; the readings land together on the
    // main queue, each on the record it was read from (one change for the whole refresh),
    // then `completion` (if any) runs there.
    void refreshDisplays(Completion completion = {});

    // Main queue only. Stores each value that is present into the record its key names
    // and raises its status to verified when brightness, contrast or volume came back;
    // one change for all of them. Readings whose record left the list are dropped.
    void apply(const std::vector<Reading>& readings);
    void updateDisplay(const RecordKey& key, std::optional<DDCReadResult> brightness,
                       std::optional<DDCReadResult> contrast, std::optional<DDCReadResult> volume,
                       std::optional<DDCReadResult> mute, std::optional<DDCReadResult> inputSource) {
        apply({Reading{key, brightness, contrast, volume, mute, inputSource}});
    }

    const std::shared_ptr<DDCManager>& ddcManager() const { return ddcManager_; }

private:
    // The enumeration proper (display/Enumeration.h), on the calling thread.
    std::vector<ExternalDisplay> buildList(std::optional<platform::DisplayID> only = {});
    void publish(std::vector<ExternalDisplay> displays, platform::Clock::TimePoint started);
    platform::Clock::TimePoint now() const;
    // Main queue: hands the next background pass to the enumeration worker.
    void startBackgroundPass();
    void passPublished(std::vector<ExternalDisplay> list, platform::Clock::TimePoint started);
    void scheduleEnumeration();

    platform::Platform platform_;
    std::shared_ptr<DDCManager> ddcManager_;
    DisplayList list_;

    // Main queue only.
    bool enumerating_ = false;                // a background pass is running
    bool passRequested_ = false;              // ... and another was asked for meanwhile
    std::vector<Completion> runningDone_;     // to run when the running pass is published
    std::vector<Completion> requestedDone_;   // to run after the pass asked for meanwhile
    std::uint64_t hotPlugGeneration_ = 0;     // the latest report; older timers stand down

    // Set when the manager goes: work still queued on the workers stops at once.
    std::atomic<bool> stopping_{false};
    // Last, so they are built after and joined before everything the tasks use.
    std::unique_ptr<SerialQueue> enumerationWorker_;
    std::unique_ptr<SerialQueue> refreshWorker_;
};

} // namespace pw
