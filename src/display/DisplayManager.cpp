#include "display/DisplayManager.h"

#include "app/DiagnosticLog.h"
#include "app/Preferences.h"
#include "display/PacedTransport.h"
#include "app/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/EdidName.h"
#include "display/TransportDiscovery.h"
#include "support/Hex.h"
#include "support/SerialQueue.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace pw {

namespace {

constexpr std::uint32_t kMaxDisplays = 16;
constexpr std::uint32_t kAppleVendor = 0x0610;
constexpr std::string_view kRefreshQueueLabel = "com.panelwright.refresh";
constexpr std::string_view kEnumerationQueueLabel = "com.panelwright.enumeration";

void logDisplay(std::string_view message) {
    DiagnosticLog::log("Display", message);
}
void logDDC(std::string_view message) {
    DiagnosticLog::log("DDC", message);
}

std::string hex4(std::uint32_t value) {
    return hex(value, 4, HexCase::lower);
}

std::string num(std::uint64_t value) {
    return std::to_string(value);
}

ExternalDisplay* find(std::vector<ExternalDisplay>& list, const DisplayManager::RecordKey& key) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const ExternalDisplay& d) {
        return DisplayManager::keyOf(d) == key;
    });
    return found == list.end() ? nullptr : &*found;
}

} // namespace

DisplayManager::DisplayManager(platform::Platform platform, std::shared_ptr<DDCManager> ddcManager)
    : platform_(std::move(platform)), ddcManager_(std::move(ddcManager)),
      // The strategy lives exactly as long as the manager, so it may call back into it.
      discovery_(makeTransportDiscovery(
          platform_,
          [this](platform::DisplayID id, const std::vector<DisplayTransportMatch>& candidates) {
              return matchTransport(id, candidates);
          })) {}

DisplayManager::~DisplayManager() = default;

// --- The published list ---------------------------------------------------------------

std::vector<ExternalDisplay> DisplayManager::displays() const {
    std::lock_guard lock(mutex_);
    return displays_;
}

DisplayManager::ObserverToken DisplayManager::subscribe(Observer observer) {
    std::lock_guard lock(mutex_);
    const auto token = nextToken_++;
    observers_.emplace(token, std::move(observer));
    return token;
}

void DisplayManager::unsubscribe(ObserverToken token) {
    std::lock_guard lock(mutex_);
    observers_.erase(token);
}

template <typename Change> void DisplayManager::changeList(Change&& change) {
    std::vector<ExternalDisplay> snapshot;
    std::vector<Observer> observers;
    {
        std::lock_guard lock(mutex_);
        if (!change(displays_)) return;
        if (observers_.empty()) return;
        snapshot = displays_;
        for (const auto& entry : observers_)
            observers.push_back(entry.second);
    }
    // Called without the lock, so an observer may read the list or unsubscribe.
    for (const auto& observer : observers)
        observer(snapshot);
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
    changeList([&](std::vector<ExternalDisplay>& list) {
        list = std::move(displays);
        return true;
    });
    SystemLog::display().info("Found " + num(count) + " external display(s), " + num(withDDC) +
                              " with DDC");
}

// --- Pairing channels with displays ---------------------------------------------------

int DisplayManager::scoreTransport(const DisplayTransportMatch& candidate,
                                   const DisplayIdentity& display) {
    int score = 0;
    if (candidate.vendorID != 0) {
        const bool sameVendor = candidate.vendorID == display.vendor;
        const bool sameModel = candidate.productID == display.model;
        if (sameVendor && sameModel) {
            score += 6;
        } else if (sameVendor || sameModel) {
            score += 3;
        }
        if (candidate.serialNumber != 0 && candidate.serialNumber == display.serial) score += 5;
    }
    const auto& edid = candidate.edidUUID;
    if (edid.size() >= 4 && edid.compare(0, 4, hex4(display.vendor)) == 0) score += 2;
    if (edid.size() >= 8 && edid.compare(4, 4, hex4(display.model)) == 0) score += 2;
    return score;
}

bool DisplayManager::identityMatches(const DisplayTransportMatch& candidate,
                                     const DisplayIdentity& display) {
    if (candidate.vendorID == 0) return false;
    if (candidate.vendorID != display.vendor || candidate.productID != display.model) return false;
    // Both serials known and different: the same model, but another monitor.
    return candidate.serialNumber == 0 || display.serial == 0 ||
           candidate.serialNumber == display.serial;
}

std::vector<std::optional<std::size_t>>
DisplayManager::pairTransports(const std::vector<DisplayIdentity>& displays,
                               const std::vector<DisplayTransportMatch>& candidates) {
    // Every plausible (display, candidate) pair, best first; among equals the earlier
    // display and then the earlier candidate first, so identical twins pair up in order.
    struct Pair {
        int score;
        std::size_t display;
        std::size_t candidate;
    };
    std::vector<Pair> pairs;
    for (std::size_t d = 0; d < displays.size(); ++d) {
        for (std::size_t c = 0; c < candidates.size(); ++c) {
            if (!identityMatches(candidates[c], displays[d])) continue;
            pairs.push_back({scoreTransport(candidates[c], displays[d]), d, c});
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        return std::tie(b.score, a.display, a.candidate) <
               std::tie(a.score, b.display, b.candidate);
    });

    std::vector<std::optional<std::size_t>> chosen(displays.size());
    std::vector<bool> taken(candidates.size(), false);
    for (const auto& pair : pairs) {
        if (chosen[pair.display] || taken[pair.candidate]) continue;
        chosen[pair.display] = pair.candidate;
        taken[pair.candidate] = true;
    }
    return chosen;
}

std::optional<DisplayManager::DisplayTransportMatch>
DisplayManager::matchTransport(platform::DisplayID id,
                               const std::vector<DisplayTransportMatch>& candidates) {
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front();

    auto& displays = *platform_.displays;
    const DisplayIdentity identity{id, displays.vendorNumber(id), displays.modelNumber(id),
                                   displays.serialNumber(id)};
    int bestScore = -1;
    const DisplayTransportMatch* best = nullptr;
    for (const auto& candidate : candidates) {
        const int score = scoreTransport(candidate, identity);
        if (score > bestScore) {
            bestScore = score;
            best = &candidate;
        }
    }
    return *best;
}

// --- Naming and filtering -------------------------------------------------------------

std::optional<std::string> DisplayManager::resolveDisplayName(platform::DisplayID id) {
    auto& displays = *platform_.displays;
    if (auto map = displays.productNames(id); map && !map->wrongType) {
        const auto& names = map->names;
        const auto english = std::find_if(names.begin(), names.end(),
                                          [](const auto& entry) { return entry.first == "en_US"; });
        // Names become settings keys and menu titles, so control characters never pass.
        if (english != names.end()) {
            if (auto name = displayNameFrom(english->second)) return name;
        } else if (!names.empty()) {
            if (auto name = displayNameFrom(names.front().second)) return name;
        }
    }
    for (const auto& screen : displays.screens()) {
        if (screen.number != id) continue;
        if (screen.localizedName == "Unknown") continue;
        if (auto name = displayNameFrom(screen.localizedName)) return name;
    }
    const auto vendor = displays.vendorNumber(id);
    if (vendor == 0) return std::nullopt;
    return "Display " + num(vendor) + "-" + num(displays.modelNumber(id));
}

std::optional<std::string> DisplayManager::nameFromEDID(std::string_view hex) {
    return pw::nameFromEDID(hex);
}

bool DisplayManager::isAppleDisplay(platform::DisplayID id, std::uint32_t vendor) {
    auto& displays = *platform_.displays;
    if (displays.isBuiltin(id)) return true;
    float brightness = 0;
    if (displays.displayServicesGetBrightness(id, brightness) == 0) {
        logDisplay("Display " + num(id) + " reports a built-in brightness — Apple display");
        return true;
    }
    return vendor == kAppleVendor;
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
    // A queue per pass, owned by its one task like a refresh's; passes never overlap, so
    // there is only ever one "com.panelwright.enumeration" at a time.
    auto queue = std::make_shared<SerialQueue>(std::string(kEnumerationQueueLabel));
    queue->async([weak = weak_from_this(), mainQueue = platform_.mainQueue, ownQueue = queue] {
        auto self = weak.lock();
        if (!self) return;
        const auto started = self->now();
        auto list = self->buildList();
        // The owner may have let go while the probes ran: this reference goes back to the
        // main queue with the list, so the manager never ends on this worker.
        mainQueue->post([self = std::move(self), list = std::move(list), started]() mutable {
            self->publish(std::move(list), started);
            auto done = std::move(self->runningDone_);
            self->runningDone_.clear();
            if (self->passRequested_) {
                self->passRequested_ = false;
                self->runningDone_ = std::move(self->requestedDone_);
                self->requestedDone_.clear();
                self->startBackgroundPass();
            } else {
                self->enumerating_ = false;
            }
            for (auto& completion : done)
                if (completion) completion();
        });
    });
}

namespace {

// Finds the options of a monitor that came back under another display number; logged,
// since a user wondering where a setting went should find the answer in the log.
void adoptOptions(platform::UserDefaults& store, const std::string& key,
                  const std::vector<platform::DisplayID>& activeIDs) {
    const std::vector<std::uint32_t> active(activeIDs.begin(), activeIDs.end());
    const auto lookup = Preferences::adoptDisplayOptions(store, key, active);
    using Outcome = Preferences::DisplayKeyLookup::Outcome;
    if (lookup.outcome == Outcome::migrated)
        logDisplay("Options of " + lookup.movedFrom + " moved to " + key);
    else if (lookup.outcome == Outcome::ambiguous)
        logDisplay("Options for " + key + " not moved: " + num(lookup.candidates.size()) +
                   " earlier displays of the same model");
}

} // namespace

std::vector<ExternalDisplay> DisplayManager::buildList(std::optional<platform::DisplayID> only) {
    const auto& systemLog = SystemLog::display();
    logDisplay("enumerateDisplays() called");
    systemLog.info("Enumerating displays...");

    // Without display services there is nothing to list; the loops below then never run.
    auto* const displays = platform_.displays.get();
    auto ids =
        displays ? displays->activeDisplayList(kMaxDisplays) : std::vector<platform::DisplayID>();
    if (ids.size() > kMaxDisplays) ids.resize(kMaxDisplays);
    logDisplay("The machine lists " + num(ids.size()) + " active display(s)");

    std::vector<ExternalDisplay> result;
    logDisplay(discovery_->architectureLine());
    const auto channels = discovery_->begin(ids);

    for (std::size_t i = 0; i < ids.size(); ++i) {
        const auto id = ids[i];
        const bool builtin = displays->isBuiltin(id);
        logDisplay("Display[" + num(i) + "]: id=" + num(id) +
                   " builtin=" + (builtin ? "true" : "false"));
        if (builtin) continue;

        const auto vendor = displays->vendorNumber(id);
        const auto product = displays->modelNumber(id);
        logDisplay("Display[" + num(i) + "]: vendor=" + num(vendor) + " product=" + num(product));

        if (isAppleDisplay(id, vendor)) {
            logDisplay("Display[" + num(i) + "]: Apple display, skipping DDC");
            systemLog.info("Skipping Apple display " + num(id) + " — DDC not supported");
            continue;
        }

        const auto match = channels->transportFor(id);
        if (!match) {
            logDisplay("No I2C transport for display " + num(id) + " — skipping");
            systemLog.error("No I2C transport for display " + num(id));
            continue;
        }
        // Past the channel search, which must see every display; a probe of another
        // display's monitor would only cost time, up to a lock wait on a busy bus.
        if (only && id != *only) {
            logDisplay("Display[" + num(i) + "]: not asked for, not probed");
            continue;
        }

        auto resolved = resolveDisplayName(id);
        if (!resolved && !match->edidUUID.empty()) resolved = nameFromEDID(match->edidUUID);
        const std::string name = resolved.value_or("External Display");
        logDisplay("Display name resolved: " + name);

        if (!result.empty()) discovery_->waitBeforeProbe();

        ExternalDisplay display;
        display.id = id;
        display.name = name;
        display.transport = match->transport;
        display.vendorID = vendor;
        display.productID = product;
        display.ddcSupported = true;
        display.forceSoftwareBrightness = false;
        if (auto* store = platform_.defaults.get()) {
            adoptOptions(*store, display.preferenceKey(), ids);
            // Read at every enumeration, so the settings' toggle needs no restart; the
            // wrapper carries it to every transfer, whoever sends it.
            display.longerDelay = Preferences::longerDelay(*store, display.preferenceKey());
            if (display.longerDelay)
                display.transport =
                    std::make_shared<PacedTransport>(display.transport, platform_.clock);
        }

        logDDC("Reading DDC brightness for " + name + " (display " + num(id) + ")...");
        if (auto brightness = ddcManager_->read(display.transport, VCPCode::brightness)) {
            logDDC("DDC read OK: " + name + " brightness=" + num(brightness->current) + "/" +
                   num(brightness->max));
            systemLog.info("Found DDC display: " + name + " (brightness: " +
                           num(brightness->current) + "/" + num(brightness->max) + ")");
            display.ddcStatus = DDCStatus::verified;
            display.brightness = brightness;
        } else {
            logDDC("DDC read failed for " + name +
                   " — controls shown anyway (writes may still work)");
            systemLog.info("Display " + name +
                           ": DDC reads failed but controls enabled (writes may work)");
            display.ddcStatus = DDCStatus::unverified;
        }
        result.push_back(std::move(display));
    }

    logDisplay("Enumeration complete: " + num(result.size()) + " external, " +
               num(ddcCapableDisplays(result).size()) + " with DDC");
    return result;
}

// --- Hot-plug ---------------------------------------------------------------------------

void DisplayManager::drain(platform::Registry& registry, platform::IOObject iterator) {
    while (const auto object = registry.iteratorNext(iterator))
        registry.release(object);
}

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
    // A machine with a hot-plug event of its own (udev on Linux) needs no registry watch.
    if (platform_.mainQueue && discovery_->startWatching([weak = weak_from_this()] {
            if (auto self = weak.lock()) self->scheduleEnumeration();
        })) {
        SystemLog::display().info("Display monitoring started");
        return;
    }
    if (!platform_.registry || !platform_.mainQueue) return;
    auto& registry = *platform_.registry;

    notificationPort_ = registry.createNotificationPort();
    if (notificationPort_ == 0) return; // no port: the list changes only on refresh and restart
    if (!registry.attachToMainRunLoop(notificationPort_)) return;

    const auto watched = discovery_->watchedClass();
    // Reports are answered a second after the last of a burst: the registry is still
    // settling when a notification arrives, and a dock reports each of its monitors.
    // The registry keeps the handler, so the handler must not keep the registry. Its
    // objects are released even when the manager is gone, so none of them leaks.
    const auto handler = [weak = weak_from_this(),
                          weakRegistry =
                              std::weak_ptr(platform_.registry)](platform::IOObject iterator) {
        if (auto alive = weakRegistry.lock()) drain(*alive, iterator);
        if (auto self = weak.lock()) self->scheduleEnumeration();
    };

    if (registry.addMatchingNotification(notificationPort_, platform::kFirstMatchNotification,
                                         watched, handler, addedIterator_) != platform::kSuccess) {
        SystemLog::display().error("Display monitoring could not be registered");
        return;
    }
    drain(registry, addedIterator_); // arms the notification; what is already there is not news
    if (registry.addMatchingNotification(notificationPort_, platform::kTerminateNotification,
                                         watched, handler,
                                         removedIterator_) != platform::kSuccess) {
        SystemLog::display().error("Display monitoring could not be registered");
        return;
    }
    drain(registry, removedIterator_);
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
    // A queue per refresh: two refreshes may read at once, the DDC manager keeps their
    // bus traffic apart. The work owns its queue; when the work item is done with, the
    // queue goes with it and its worker ends by itself.
    auto queue = std::make_shared<SerialQueue>(std::string(kRefreshQueueLabel));
    auto mainQueue = platform_.mainQueue;
    queue->async([weak = weak_from_this(), mainQueue, ownQueue = queue,
                  records = std::move(records), completion = std::move(completion)]() mutable {
        for (const auto& record : records) {
            // One display at a time: a manager whose owner let go stops the refresh at the
            // next display, and the reference taken here goes back to the main queue with
            // the readings, so the manager never ends on this worker.
            auto self = weak.lock();
            if (!self) return;
            const auto key = keyOf(record);
            {
                // A display that has left the list meanwhile is not worth a bus read.
                std::lock_guard lock(self->mutex_);
                if (std::none_of(self->displays_.begin(), self->displays_.end(),
                                 [&](const ExternalDisplay& d) { return keyOf(d) == key; })) {
                    mainQueue->post([self = std::move(self)] {});
                    continue;
                }
            }
            auto& ddc = *self->ddcManager_;
            auto brightness = ddc.read(record.transport, VCPCode::brightness);
            auto contrast = ddc.read(record.transport, VCPCode::contrast);
            auto volume = ddc.read(record.transport, VCPCode::volume);
            auto mute = ddc.read(record.transport, VCPCode::mute);
            auto inputSource = ddc.read(record.transport, VCPCode::inputSource);
            mainQueue->post([self = std::move(self), key, brightness, contrast, volume, mute,
                             inputSource] {
                self->updateDisplay(key, brightness, contrast, volume, mute, inputSource);
            });
        }
        mainQueue->post([done = std::move(completion)] {
            if (done) done();
        });
    });
}

void DisplayManager::updateDisplay(const RecordKey& key, std::optional<DDCReadResult> brightness,
                                   std::optional<DDCReadResult> contrast,
                                   std::optional<DDCReadResult> volume,
                                   std::optional<DDCReadResult> mute,
                                   std::optional<DDCReadResult> inputSource) {
    using Field = std::optional<DDCReadResult> ExternalDisplay::*;
    const std::pair<Field, const std::optional<DDCReadResult>*> values[] = {
        {&ExternalDisplay::brightness, &brightness},   {&ExternalDisplay::contrast, &contrast},
        {&ExternalDisplay::volume, &volume},           {&ExternalDisplay::mute, &mute},
        {&ExternalDisplay::inputSource, &inputSource},
    };
    for (const auto& entry : values) {
        const Field field = entry.first;
        const std::optional<DDCReadResult>& value = *entry.second;
        if (!value) continue;
        changeList([&](std::vector<ExternalDisplay>& list) {
            auto* record = find(list, key);
            if (!record) return false;
            record->*field = value;
            return true;
        });
    }
    // The status follows the values the controls show; mute or input source alone leave it.
    if (brightness || contrast || volume) {
        changeList([&](std::vector<ExternalDisplay>& list) {
            auto* record = find(list, key);
            if (!record) return false;
            record->ddcStatus = DDCStatus::verified;
            return true;
        });
    }
}

} // namespace pw
