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
// one second after every hot-plug report, and refreshes the values in it on request.
//
// The list is changed only on the main queue; `displays()` may be read from any
// thread and always yields a whole, consistent copy. Observers are called on the main
// queue after every change, once per change.
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

    // The process-wide instance, built on first use from the installed platform and the
    // shared DDC manager.
    static std::shared_ptr<DisplayManager> shared();

    // --- The published list ---------------------------------------------------------

    std::vector<ExternalDisplay> displays() const;
    ObserverToken subscribe(Observer observer);
    void unsubscribe(ObserverToken token);

    // --- Enumeration ----------------------------------------------------------------

    // Rebuilds the list from scratch on the calling thread, blocking while it probes each
    // monitor, and publishes it later on the main queue.
    void enumerateDisplays();

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

    // Watches the registry for displays that appear or disappear and enumerates again
    // 1.0 s after each report. Call once, on the main thread, after the first enumeration.
    void startMonitoring();

    // Re-reads brightness, contrast, volume, mute and input source of every DDC-capable
    // display on a new refresh queue; results land on the main queue by list position,
    // then `completion` (if any) runs there.
    void refreshDisplays(Completion completion = {});

    // Main queue only. Stores each value that is present into the record at `position`
    // (one change each) and raises its status to verified when brightness, contrast or
    // volume came back. A position past the end of the list is ignored.
    void updateDisplay(std::size_t position, std::optional<DDCReadResult> brightness,
                       std::optional<DDCReadResult> contrast, std::optional<DDCReadResult> volume,
                       std::optional<DDCReadResult> mute, std::optional<DDCReadResult> inputSource);

    const std::shared_ptr<DDCManager>& ddcManager() const { return ddcManager_; }
    platform::NotificationPort notificationPort() const { return notificationPort_; }
    platform::IOObject addedIterator() const { return addedIterator_; }
    platform::IOObject removedIterator() const { return removedIterator_; }

private:
    void publish(std::vector<ExternalDisplay> displays);
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
};

} // namespace pw
