#pragma once

#include "display/ExternalDisplay.h"
#include "platform/Platform.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pw {

class DDCManager;
class TransportDiscovery;

// Owns the published list of external monitors: builds it by enumeration (filter,
// find each monitor's I2C channel, name it, probe it with one DDC read), rebuilds it
// one second after a burst of hot-plug reports, and refreshes the values in it on request.
//
// The list is changed only on the main queue; `displays()` may be read from any
// thread and always yields a whole, consistent copy. Observers are called on the main
// queue after every change, once per change. The main queue never waits for the bus:
// probes and reads run on worker queues and only their results come back to it.
class DisplayManager : public std::enable_shared_from_this<DisplayManager> {
public:
    using DisplayTransportMatch = pw::DisplayTransportMatch;
    using Observer = std::function<void(const std::vector<ExternalDisplay>&)>;
    using ObserverToken = std::uint64_t;
    using Completion = std::function<void()>;

    // The registry class whose appearance and disappearance means a display came or went.
    static constexpr std::string_view kAppleSiliconWatchedClass = "AppleCLCD2";
    static constexpr std::string_view kIntelWatchedClass = "IODisplay";
    static constexpr std::chrono::milliseconds kHotPlugDelay{1000};

    DisplayManager(platform::Platform platform, std::shared_ptr<DDCManager> ddcManager);
    ~DisplayManager();

    DisplayManager(const DisplayManager&) = delete;
    DisplayManager& operator=(const DisplayManager&) = delete;

    // --- The published list ---------------------------------------------------------

    std::vector<ExternalDisplay> displays() const;
    ObserverToken subscribe(Observer observer);
    void unsubscribe(ObserverToken token);

    // --- Enumeration ----------------------------------------------------------------

    // Rebuilds the list from scratch on the calling thread, blocking while it probes each
    // monitor, and publishes it later on the main queue. For the command line and tests:
    // an application must not call it on its main thread.
    // With `only`, the list holds that display alone and only its monitor is probed: the
    // machine's display list is still read whole and every display still gets its channel,
    // since a channel may be told apart only by the others (twins pair in order), so the
    // display keeps the channel, name and key a full enumeration gives it.
    void enumerateDisplays(std::optional<platform::DisplayID> only = std::nullopt);

    // Main queue only. Rebuilds the list on the "com.panelwright.enumeration" queue,
    // publishes it on the main queue and then runs `done` there. Never two at a time: a
    // request made while one runs is served by one more pass right after it (however many
    // requests came), and their `done`s run once that pass is published. Nothing runs if
    // the manager is gone by then.
    void enumerateDisplaysInBackground(Completion done = {});
    // Main queue only: a background enumeration is running or waiting to run.
    bool enumerationInProgress() const { return enumerating_; }

    // The single rule for one display and a candidate list: none for no candidates, the
    // only one for a single candidate (whatever the display), else the best score with
    // ties to the earliest. It knows nothing of other displays. On Apple Silicon enumeration
    // pairs several channels with `pairTransports`; on Intel the fallback uses this rule,
    // since those channels carry their monitors' real identity numbers.
    std::optional<DisplayTransportMatch>
    matchTransport(platform::DisplayID id, const std::vector<DisplayTransportMatch>& candidates);

    // What the system knows about a display, for scoring a candidate channel.
    struct DisplayIdentity {
        platform::DisplayID id = 0;
        std::uint32_t vendor = 0;
        std::uint32_t model = 0;
        std::uint32_t serial = 0;
    };
    // How well a candidate fits a display: 6 for equal vendor and model (3 for one of the
    // two), 5 more for an equal non-zero serial, when the candidate's vendor is known;
    // 2 each when its EDID text starts with the vendor and then the model as "%04x".
    static int scoreTransport(const DisplayTransportMatch& candidate,
                              const DisplayIdentity& display);
    // True when the candidate's own identity (from its EDID) is known and names this
    // display: same vendor and model, and no two different non-zero serials.
    static bool identityMatches(const DisplayTransportMatch& candidate,
                                const DisplayIdentity& display);
    // Pairs displays with two or more candidate channels so that no channel drives two
    // monitors: for each display (in order) the index of its candidate, or nothing. See
    // docs/displays.md for the rule and its limits.
    static std::vector<std::optional<std::size_t>>
    pairTransports(const std::vector<DisplayIdentity>& displays,
                   const std::vector<DisplayTransportMatch>& candidates);

    // The display's name from the system (product-name map, then screen name, then
    // "Display <vendor>-<model>"), or nothing.
    std::optional<std::string> resolveDisplayName(platform::DisplayID id);
    static std::optional<std::string> nameFromEDID(std::string_view hex);
    // Built-in panels and Apple's own displays, which the system controls itself.
    bool isAppleDisplay(platform::DisplayID id, std::uint32_t vendor);

    // --- Hot-plug and refresh -------------------------------------------------------

    // Watches the registry for displays that appear or disappear. Reports within one
    // second of each other end in a single background enumeration, one second after the
    // last. Call once, on the main thread, after the first enumeration.
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

    // Re-reads brightness, contrast, volume, mute and input source of every DDC-capable
    // display listed at the call, on a new refresh queue; results land on the main queue
    // on the record they were read from, then `completion` (if any) runs there.
    void refreshDisplays(Completion completion = {});

    // Main queue only. Stores each value that is present into the record `key` names
    // (one change each) and raises its status to verified when brightness, contrast or
    // volume came back. Dropped when no record in the list has that key.
    void updateDisplay(const RecordKey& key, std::optional<DDCReadResult> brightness,
                       std::optional<DDCReadResult> contrast, std::optional<DDCReadResult> volume,
                       std::optional<DDCReadResult> mute, std::optional<DDCReadResult> inputSource);

    const std::shared_ptr<DDCManager>& ddcManager() const { return ddcManager_; }
    platform::NotificationPort notificationPort() const { return notificationPort_; }
    platform::IOObject addedIterator() const { return addedIterator_; }
    platform::IOObject removedIterator() const { return removedIterator_; }

private:
    // The enumeration proper: lists, pairs, names and probes on the calling thread.
    std::vector<ExternalDisplay> buildList(std::optional<platform::DisplayID> only = {});
    void publish(std::vector<ExternalDisplay> displays, platform::Clock::TimePoint started);
    platform::Clock::TimePoint now() const;
    // Main queue: hands the next background pass to a fresh enumeration queue.
    void startBackgroundPass();
    // Applies `change` to the list under the lock and tells the observers; main queue.
    template <typename Change> void changeList(Change&& change);
    void notifyObservers(const std::vector<ExternalDisplay>& snapshot);
    static void drain(platform::Registry& registry, platform::IOObject iterator);
    void scheduleEnumeration();

    platform::Platform platform_;
    std::shared_ptr<DDCManager> ddcManager_;
    // How this kind of machine finds each display's channel; chosen once, from the flavour.
    std::unique_ptr<TransportDiscovery> discovery_;
    platform::NotificationPort notificationPort_ = 0;
    platform::IOObject addedIterator_ = 0;
    platform::IOObject removedIterator_ = 0;

    mutable std::mutex mutex_; // guards displays_ and observers_
    std::vector<ExternalDisplay> displays_;
    std::map<ObserverToken, Observer> observers_;
    ObserverToken nextToken_ = 1;

    // Main queue only.
    bool enumerating_ = false;                // a background pass is running
    bool passRequested_ = false;              // ... and another was asked for meanwhile
    std::vector<Completion> runningDone_;     // to run when the running pass is published
    std::vector<Completion> requestedDone_;   // to run after the pass asked for meanwhile
    std::uint64_t hotPlugGeneration_ = 0;     // the latest report; older timers stand down
};

} // namespace pw
