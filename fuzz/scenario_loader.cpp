// Feeds arbitrary bytes to the scenario loader. Whatever comes in, the loader must give
// either a whole scenario or an error that names the input; a scenario it accepts must
// build a machine whose displays, registry and EDIDs hold together.
#include "platform/sim/SimDisplayServices.h"
#include "platform/sim/SimLinux.h"
#include "platform/sim/SimMachine.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

// A Linux machine has no registry: its displays are the connected DRM connectors, each
// with the EDID the machine built (or the one the scenario gave).
void checkLinuxMachine(const pw::sim::SimMachine& machine, const pw::sim::Scenario& scenario) {
    if (machine.macMonitors() || !machine.drm()) std::abort();
    std::vector<pw::platform::DisplayID> ids;
    for (const auto& connector : machine.drm()->connectors())
        if (connector.connected()) ids.push_back(connector.id);
    std::size_t connected = 0;
    for (const auto& display : scenario.displays)
        if (display.connector.status == "connected") ++connected;
    if (!scenario.linuxMachine.drm) connected = 0;
    if (ids.size() != connected) std::abort();
    if (std::set(ids.begin(), ids.end()).size() != ids.size()) std::abort();
    for (const auto& connector : machine.drm()->connectors()) {
        if (connector.edid.empty() || connector.edid.size() != 128) continue;
        unsigned sum = 0;
        for (const auto b : connector.edid)
            sum += b;
        bool given = false;
        for (const auto& display : scenario.displays)
            given = given || (display.id == connector.id && display.edid.has_value());
        if (!given && sum % 256 != 0) std::abort();
    }
}

void checkMachine(const pw::sim::Scenario& scenario) {
    pw::sim::SimMachine machine(scenario);
    const auto platform = machine.platform();
    if (scenario.flavor == pw::sim::Flavor::linux) {
        checkLinuxMachine(machine, scenario);
        return;
    }
    const auto ids = machine.displayServices().activeDisplayList(1024);
    if (ids.size() != scenario.displays.size()) std::abort();
    if (std::set(ids.begin(), ids.end()).size() != ids.size()) std::abort();
    if (platform.screens->screens().size() != ids.size()) std::abort();

    // A framebuffer whose EDID the machine built itself always carries a valid one.
    for (const auto& display : scenario.displays) {
        bool overridden = display.edid.has_value() || !display.hasEDID;
        for (const auto& [key, value] : display.framebufferProperties)
            overridden = overridden || key == "IODisplayEDID";
        if (overridden) continue;
        const auto edid =
            machine.registry().property(machine.framebufferEntry(display.id), "IODisplayEDID");
        if (!edid || !edid->bytes() || edid->bytes()->size() != 128) std::abort();
        unsigned sum = 0;
        for (const auto b : *edid->bytes())
            sum += b;
        if (sum % 256 != 0) std::abort();
    }

    // Walking every connection up to the root and releasing everything leaves no debt.
    auto& registry = machine.registry();
    pw::platform::IOObject iterator = 0;
    registry.getMatchingServices("DCPAVServiceProxy", iterator);
    while (auto entry = registry.iteratorNext(iterator)) {
        pw::platform::IOObject parent = 0;
        while (registry.parentEntry(entry, pw::platform::kIOServicePlane, parent) ==
               pw::platform::kSuccess) {
            registry.release(entry);
            entry = parent;
        }
        registry.release(entry);
    }
    registry.release(iterator);
    if (!machine.ledger().balanced()) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto result = pw::sim::parseScenario(text, "fuzz.json");
    if (const auto* error = std::get_if<pw::sim::ScenarioError>(&result)) {
        if (error->file != "fuzz.json" || error->expected.empty()) std::abort();
        if (error->message().rfind("fuzz.json: ", 0) != 0) std::abort();
        return 0;
    }
    checkMachine(std::get<pw::sim::Scenario>(result));
    return 0;
}
