#pragma once

#include "display/ExternalDisplay.h"
#include "platform/Platform.h"

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace pw {

// How one kind of machine finds the I2C channel of each display. The display manager picks
// its strategy once, when it is built, and from then on never asks which kind of machine
// it runs on: everything that differs (how channels are found and paired, the pause
// between probes, the event that signals hot-plug) lives behind this interface.
class TransportDiscovery {
public:
    // The plain pairing rule for one display and a candidate list (the display manager's
    // `matchTransport`): none, the only one, or the best score with ties to the earliest.
    using Matcher = std::function<std::optional<DisplayTransportMatch>(
        platform::DisplayID, const std::vector<DisplayTransportMatch>&)>;

    // The channels of one enumeration. Whatever it discovered (and the references those
    // channels hold) is dropped with it when the enumeration ends; channels handed out
    // live on in the display records that took them. It must not outlive the strategy
    // that began it.
    class Enumeration {
    public:
        virtual ~Enumeration() = default;
        // The channel for an external display, or nothing (the display is then left out).
        // Called once per display, in the order enumeration visits them.
        virtual std::optional<DisplayTransportMatch> transportFor(platform::DisplayID id) = 0;
    };

    virtual ~TransportDiscovery() = default;

    // Written under "Display" before any display is looked at.
    virtual std::string_view architectureLine() const = 0;
    // Starts an enumeration over the active displays `ids` (in the system's order, built-in
    // panels included).
    virtual std::unique_ptr<Enumeration> begin(const std::vector<platform::DisplayID>& ids) = 0;
    // Called before probing a display when another one is already in the new list.
    virtual void waitBeforeProbe() = 0;
    // The registry class whose appearance and disappearance means a display came or went.
    virtual std::string_view watchedClass() const = 0;
    // A machine whose hot-plug reports do not come through the registry starts its own
    // source here: `onChange` then runs on the main queue for every report, as long as the
    // strategy lives. False (the default) means the registry is watched instead.
    virtual bool startWatching(std::function<void()> /*onChange*/) { return false; }
};

// The strategy for the installed machine's flavour: the one place that asks.
std::unique_ptr<TransportDiscovery> makeTransportDiscovery(const platform::Platform& platform,
                                                           TransportDiscovery::Matcher matcher);

} // namespace pw
