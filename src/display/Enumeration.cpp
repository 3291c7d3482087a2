#include "display/Enumeration.h"

#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "base/SystemLog.h"
#include "ddc/DDCManager.h"
#include "display/PacedTransport.h"
#include "platform/Edid.h"

#include <chrono>
#include <string>

namespace pw {

namespace {

void logDisplay(std::string_view message) {
    DiagnosticLog::log("Display", message);
}
void logDDC(std::string_view message) {
    DiagnosticLog::log("DDC", message);
}

std::string num(std::uint64_t value) {
    return std::to_string(value);
}

// Finds the options of a monitor that came back under another display number; logged,
// since a user wondering where a setting went should find the answer in the log.
void adoptOptions(platform::UserDefaults& store, const std::string& key,
                  const std::vector<std::uint32_t>& active) {
    const auto lookup = Preferences::adoptDisplayOptions(store, key, active);
    using Outcome = Preferences::DisplayKeyLookup::Outcome;
    if (lookup.outcome == Outcome::migrated)
        logDisplay("Options of " + lookup.movedFrom + " moved to " + key);
    else if (lookup.outcome == Outcome::ambiguous)
        logDisplay("Options for " + key + " not moved: " + num(lookup.candidates.size()) +
                   " earlier displays of the same model");
}

} // namespace

std::vector<ExternalDisplay> buildDisplayList(const EnumerationParts& parts,
                                              std::optional<platform::DisplayID> only) {
    const auto& systemLog = SystemLog::display();
    logDisplay("enumerateDisplays() called");
    systemLog.info("Enumerating displays...");

    std::vector<ExternalDisplay> result;
    auto* const monitors = parts.monitors;
    if (!monitors) {
        logDisplay("The machine offers no monitors: no display channels are looked for");
        return result;
    }
    logDisplay(monitors->architectureLine());
    const auto connected = monitors->connected(only);
    std::vector<std::uint32_t> active;
    for (const auto& monitor : connected)
        active.push_back(monitor.id);
    const auto spacing = monitors->probeSpacing();

    for (std::size_t i = 0; i < connected.size(); ++i) {
        const auto& monitor = connected[i];
        const auto id = monitor.id;
        logDisplay("Display[" + num(i) + "]: id=" + num(id) +
                   " builtin=" + (monitor.builtIn ? "true" : "false"));
        if (monitor.builtIn) continue;
        logDisplay("Display[" + num(i) + "]: vendor=" + num(monitor.vendor) +
                   " product=" + num(monitor.model));
        if (!monitor.transport) {
            logDisplay("No I2C transport for display " + num(id) + " — skipping");
            systemLog.error("No I2C transport for display " + num(id));
            continue;
        }

        const auto edid = platform::Edid::parse(monitor.edid);
        const std::string name =
            monitor.systemName ? *monitor.systemName : edid.name.value_or("External Display");
        logDisplay("Display name resolved: " + name);

        if (!result.empty() && spacing > platform::Clock::Duration::zero()) {
            const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(spacing);
            logDDC("Waiting " + std::to_string(pause.count()) + "ms before probing next display...");
            if (parts.clock)
                parts.clock->sleepFor(
                    std::chrono::duration_cast<std::chrono::microseconds>(spacing));
        }

        ExternalDisplay display;
        display.id = id;
        display.name = name;
        display.transport = monitor.transport;
        display.vendorID = monitor.vendor;
        display.productID = monitor.model;
        display.ddcSupported = true;
        display.forceSoftwareBrightness = false;
        if (auto* store = parts.defaults) {
            // Asked for one display, the machine lists that one alone: the others are
            // connected all the same, so whose options are whose is left to a whole pass.
            if (!only) adoptOptions(*store, display.preferenceKey(), active);
            // Read at every enumeration, so the settings' toggle needs no restart; the
            // wrapper carries it to every transfer, whoever sends it.
            display.longerDelay = Preferences::longerDelay(*store, display.preferenceKey());
            if (display.longerDelay)
                display.transport =
                    std::make_shared<PacedTransport>(display.transport, parts.clock);
        }

        logDDC("Reading DDC brightness for " + name + " (display " + num(id) + ")...");
        if (auto brightness = parts.ddc.read(display.transport, VCPCode::brightness)) {
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

} // namespace pw
