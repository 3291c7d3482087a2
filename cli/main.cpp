// panelwright-cli: the program's main job (find monitors, read and change their
// features) and its settings, for scripts, tests and people without a tray.

#include "app/Core.h"
#include "base/DiagnosticLog.h"
#include "base/Preferences.h"
#include "app/Tuning.h"
#include "cli/Arguments.h"
#include "cli/RealMachine.h"
#include "platform/sim/SimulatedState.h"
#include "ddc/DDCManager.h"
#include "ddc/DDCMessages.h"
#include "display/DisplayManager.h"
#include "platform/drm/LinuxMonitors.h"
#include "platform/drm/I2CDevTransport.h"
#include "platform/linux/JsonUserDefaults.h"
#include "platform/linux/LinuxHostFacts.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/posix/BaseDirectories.h"
#include "platform/posix/LoopMainQueue.h"
#include "platform/posix/SystemClock.h"
#include "platform/sim/SimMachine.h"
#include "support/Hex.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <unistd.h>
#include <string>
#include <vector>

#ifndef PW_VERSION
#define PW_VERSION "0.0.0"
#endif

namespace pw::cli {
namespace {

using json = nlohmann::ordered_json;

// Exit status, the contract scripts rely on.
constexpr int kOK = 0;
constexpr int kNoAnswer = 1;
constexpr int kUsage = 2;
constexpr int kNoDisplay = 3;
constexpr int kUnsupported = 4;

struct Options {
    std::string scenario;
    std::optional<std::uint32_t> displayID;
    bool json = false;
    bool trace = false;
    bool verbose = false;
    bool forceI2CAddress = false;
    std::vector<std::string> codes; // getvcp
    std::string setCode, setValue;  // setvcp
    std::string key, value;         // config
};

int fail(int status, const std::string& message) {
    std::cerr << "panelwright-cli: " << message << "\n";
    return status;
}

// One line per bus transfer: when it started (ms since the program started), how long it
// took, which way, the chip and offset, the bytes and the bus's result when it failed.
void traceTransfer(const sim::BusTransfer& t, platform::Clock::TimePoint processStart) {
    using Ms = std::chrono::duration<double, std::milli>;
    const double start = Ms(t.start - processStart).count();
    const double took = Ms(t.end - t.start).count();
    char when[32];
    std::snprintf(when, sizeof when, "[%9.3f ms] %-5s ", start,
                  t.kind == sim::BusTransfer::Kind::write ? "write" : "read");
    char duration[32];
    std::snprintf(duration, sizeof duration, " (%.3f ms): ", took);
    std::string line = when + t.endpoint + " chip 0x" + hex(t.chipAddress, 2) + " offset 0x" +
                       hex(t.dataAddress, 2) + duration + hexBytes(t.bytes);
    if (t.result != 0) line += " [bus error 0x" + hex(static_cast<std::uint32_t>(t.result), 8) + "]";
    static std::mutex printing; // transfers may finish on different threads
    std::lock_guard lock(printing);
    std::cerr << line << "\n";
}

json readingJSON(const std::optional<DDCReadResult>& value) {
    if (!value) return nullptr;
    return {{"current", value->current}, {"max", value->max}};
}

// --- Subcommands on a machine -------------------------------------------------------

int detect(const std::vector<ExternalDisplay>& displays, const Options& options,
           const std::vector<platform::UnreachableMonitor>& unreachable = {}) {
    if (options.json) {
        json out = json::array();
        for (const auto& d : displays)
            out.push_back({{"id", d.id},
                           {"name", displayTitle(d)},
                           {"systemName", d.displayTitle()},
                           {"vendorID", d.vendorID},
                           {"productID", d.productID},
                           {"ddcStatus", std::string(rawValue(d.ddcStatus))},
                           {"preferenceKey", d.preferenceKey()},
                           {"brightness", readingJSON(d.brightness)},
                           {"reachable", true}});
        for (std::size_t i = 0; i < displays.size(); ++i)
            if (const auto* bus = dynamic_cast<const I2CDevTransport*>(displays[i].transport.get())) {
                out[i]["bus"] = bus->path();
                if (const auto problem = bus->problem(); !problem.empty()) out[i]["problem"] = problem;
            }
        // Connected monitors no channel was found for: the same keys, nothing known.
        for (const auto& m : unreachable)
            out.push_back({{"id", m.id},
                           {"name", m.name},
                           {"systemName", m.name},
                           {"vendorID", m.vendor},
                           {"productID", m.product},
                           {"ddcStatus", nullptr},
                           {"preferenceKey", nullptr},
                           {"brightness", nullptr},
                           {"reachable", false},
                           {"connector", m.connector},
                           {"problem", m.reason}});
        std::cout << out.dump(2) << "\n";
        return kOK;
    }
    if (displays.empty() && unreachable.empty()) std::cout << "No external displays found.\n";
    for (const auto& d : displays) {
        // The name the user gave the monitor in the settings, as the tray shows it.
        const auto title = displayTitle(d);
        std::cout << "Display " << d.id << ": " << title << "\n";
        if (title != d.displayTitle()) std::cout << "  system name: " << d.displayTitle() << "\n";
        std::cout
                  << "  vendor " << d.vendorID << ", product " << d.productID << ", "
                  << label(d.ddcStatus) << "\n";
        if (d.brightness)
            std::cout << "  brightness " << d.brightness->current << " of " << d.brightness->max
                      << "\n";
        if (const auto* bus = dynamic_cast<const I2CDevTransport*>(d.transport.get())) {
            std::cout << "  bus " << bus->path() << "\n";
            if (const auto problem = bus->problem(); !problem.empty())
                std::cout << "  problem: " << problem << "\n";
        }
        std::cout << "  settings key: " << d.preferenceKey() << "\n";
    }
    for (const auto& m : unreachable)
        std::cout << "Not reachable: " << m.connector
                  << (m.name.empty() ? std::string() : " (" + m.name + ")") << ": " << m.reason
                  << "\n";
    return kOK;
}

int getvcp(DDCManager& ddc, const ExternalDisplay& display, const std::vector<std::uint8_t>& codes,
           const Options& options) {
    json out = json::array();
    bool noAnswer = false, unsupported = false;
    for (std::uint8_t code : codes) {
        const auto reading = ddc.readFeature(display.transport, static_cast<VCPCode>(code));
        noAnswer = noAnswer || reading.outcome == FeatureReading::Outcome::noAnswer;
        unsupported = unsupported || reading.unsupported();
        const auto value = reading.valueOrNothing();
        if (options.json) {
            json entry = {{"code", code},
                          {"name", codeTitle(code)},
                          {"current", value ? json(value->current) : json(nullptr)},
                          {"max", value ? json(value->max) : json(nullptr)}};
            if (reading.unsupported())
                entry["error"] = "unsupported";
            else if (!value)
                entry["error"] = "no valid reply from the monitor";
            out.push_back(std::move(entry));
            continue;
        }
        const std::string head = codeTitle(code) + " (0x" + hex(code, 2) + "): ";
        if (!value) {
            std::cout << head
                      << (reading.unsupported() ? "not supported by this monitor"
                                                : "no valid reply from the monitor")
                      << "\n";
            continue;
        }
        std::cout << head << value->current;
        if (const auto name = valueLabel(code, value->current)) std::cout << " (" << *name << ")";
        std::cout << " of " << value->max << "\n";
    }
    if (options.json) std::cout << out.dump(2) << "\n";
    // A monitor that did not answer is the graver news: a script may simply try again.
    return noAnswer ? kNoAnswer : unsupported ? kUnsupported : kOK;
}

int setvcp(DDCManager& ddc, platform::LoopMainQueue& mainQueue, const ExternalDisplay& display,
           std::uint8_t code, std::uint16_t value, const Options& options) {
    bool ok = false;
    ddc.write(display.transport, static_cast<VCPCode>(code), value, [&](bool succeeded) {
        ok = succeeded;
        mainQueue.stop();
    });
    mainQueue.run(); // until the write's outcome arrives on the main queue
    // A monitor may clamp or ignore a value it accepted on the bus: what it reports now,
    // not what was sent, is what the user gets. Read past the cache (a negative lifetime
    // keeps nothing fresh), which only knows what was written.
    FeatureReading reading;
    if (ok) {
        ddc.setCacheTTL(-1);
        reading = ddc.readFeature(display.transport, static_cast<VCPCode>(code));
    }
    const auto now = reading.valueOrNothing();
    const bool aboveMax = now && value > now->max;
    if (options.json) {
        json out = {{"code", code}, {"value", value}, {"ok", ok}};
        if (ok) out["reported"] = readingJSON(now);
        if (reading.unsupported()) out["error"] = "unsupported";
        std::cout << out.dump() << "\n";
    } else if (!ok) {
        std::cout << codeTitle(code) << ": the monitor did not accept " << value << "\n";
    } else if (reading.unsupported()) {
        std::cout << codeTitle(code) << " sent " << value << "; not supported by this monitor\n";
    } else if (!now) {
        std::cout << codeTitle(code) << " sent " << value
                  << "; the monitor did not answer when read back\n";
    } else if (now->current == value) {
        std::cout << codeTitle(code) << " set to " << value << "\n";
    } else {
        std::cout << codeTitle(code) << " sent " << value << "; the monitor now reports "
                  << now->current << " of " << now->max << "\n";
    }
    if (aboveMax)
        std::cerr << "panelwright-cli: warning: " << value << " is above this monitor's maximum "
                  << now->max << " for " << codeTitle(code) << "\n";
    return !ok ? kNoAnswer : reading.unsupported() ? kUnsupported : kOK;
}

enum class Command { detect, getvcp, setvcp };

// The i2c-dev channel's own account of why the monitor could not be reached, if it has
// one; nothing for other machines' channels.
std::string busProblem(const ExternalDisplay& display, bool* unreachable = nullptr) {
    const auto* bus = dynamic_cast<const I2CDevTransport*>(display.transport.get());
    if (unreachable) *unreachable = bus && bus->unreachable();
    return bus ? bus->problem() : std::string();
}

struct Request {
    Command command;
    std::vector<std::uint8_t> codes;
    std::uint8_t setCode = 0;
    std::uint16_t setValue = 0;
};

// Enumerates the machine's displays and carries out the command on them.
int runCommand(const Core& core, const std::shared_ptr<platform::LoopMainQueue>& mainQueue,
               const Request& request, const Options& options) {
    const Command command = request.command;
    const platform::Platform& machine = core.machine();
    int status = kOK;
    const auto& ddc = core.ddc();
    applyTuningPreferences(platform::JsonUserDefaults(), *ddc, nullptr);
    const auto& displays = core.displays();
    // A command on one display probes that display alone: every other probe could wait
    // out a bus another program holds.
    displays->enumerateDisplays(command == Command::detect ? std::nullopt : options.displayID);
    mainQueue->runPending(); // publishes the list
    const auto list = displays->displays();

    // No display at all, or none whose channel can even be opened: say why, exit 3.
    // Connected monitors without a channel, each with the reason.
    std::vector<platform::UnreachableMonitor> missing;
    if (!options.displayID && machine.monitors)
        missing = machine.monitors->unreachable();
    if (!options.displayID) {
        std::string why;
        if (list.empty() && machine.monitors) why = machine.monitors->whyNoneFound();
        if (list.empty() && why.empty() && !missing.empty())
            why = missing.front().connector + ": " + missing.front().reason;
        bool allUnreachable = !list.empty();
        std::string first;
        for (const auto& d : list) {
            bool unreachable = false;
            const auto problem = busProblem(d, &unreachable);
            allUnreachable = allUnreachable && unreachable;
            if (first.empty()) first = problem;
        }
        if (allUnreachable) why = first;
        if (!why.empty()) {
            if (command == Command::detect) detect(list, options, missing);
            status = fail(kNoDisplay, why);
        } else if (list.empty() && command != Command::detect) {
            status = fail(kNoDisplay, "no external display with DDC/CI found; see \"detect\" and "
                                      "the diagnostic log");
        }
        if (status != kOK) return status;
    }

    if (command == Command::detect) {
        auto shown = list;
        if (options.displayID)
            std::erase_if(shown,
                          [&](const ExternalDisplay& d) { return d.id != *options.displayID; });
        status = shown.empty() && options.displayID
                     ? fail(kNoDisplay,
                            "no external display with id " + std::to_string(*options.displayID))
                     : detect(shown, options, missing);
    } else {
        std::optional<ExternalDisplay> target;
        for (const auto& d : ddcCapableDisplays(list))
            if (!options.displayID || d.id == *options.displayID) {
                target = d;
                break;
            }
        if (!target) {
            status =
                options.displayID
                    ? fail(kNoDisplay, "no external display with id " +
                                           std::to_string(*options.displayID) + " (see detect)")
                    : fail(kNoDisplay, "no external display with DDC/CI found");
        } else if (command == Command::getvcp) {
            status = getvcp(*ddc, *target, request.codes, options);
            if (status == kNoAnswer) std::cerr << "panelwright-cli: a read got no answer\n";
        } else {
            status = setvcp(*ddc, *mainQueue, *target, request.setCode, request.setValue, options);
        }
        if (target && status != kOK) {
            bool unreachable = false;
            if (const auto problem = busProblem(*target, &unreachable); !problem.empty())
                status = fail(unreachable ? kNoDisplay : status, problem);
        }
    }
    return status;
}

int runOnMachine(Command command, const Options& options, platform::Clock::TimePoint processStart) {
    // Arguments first, so a typing mistake costs no bus traffic.
    std::vector<std::uint8_t> codes;
    for (const auto& text : options.codes) {
        const auto code = parseCode(text);
        if (!code) return fail(kUsage, "unknown feature code \"" + text + "\"");
        codes.push_back(*code);
    }
    std::uint8_t setCode = 0;
    std::uint16_t setValue = 0;
    if (command == Command::setvcp) {
        const auto code = parseCode(options.setCode);
        if (!code) return fail(kUsage, "unknown feature code \"" + options.setCode + "\"");
        const auto value = parseValue(*code, options.setValue);
        if (!value)
            return fail(kUsage, "\"" + options.setValue + "\" is not a value for " +
                                    codeTitle(*code) + " (0..65535, decimal or 0x hex)");
        setCode = *code;
        setValue = *value;
    }
    const Request request{command, codes, setCode, setValue};

    if (options.scenario.empty()) {
        // The real machine: its DRM connectors and /dev/i2c-* devices.
        auto mainQueue = std::make_shared<platform::LoopMainQueue>();
        RealMachineOptions real;
        real.forceSlaveAddress = options.forceI2CAddress;
        real.mainQueue = mainQueue;
        if (options.trace) {
            real.trace = [](const std::string& line) {
                static std::mutex printing;
                std::lock_guard lock(printing);
                std::cerr << line << "\n";
            };
        }
        const auto machine = makeRealMachine(real);
        if (!machine.monitors)
            return fail(kNoDisplay, "this machine has no display backend; try --simulate "
                                    "SCENARIO (e.g. --simulate scenarios/one-monitor.json)");
        const Core core(machine, Core::Parts::displaysOnly);
        return runCommand(core, mainQueue, request, options);
    }

    auto loaded = sim::loadScenarioFile(options.scenario);
    if (const auto* error = std::get_if<sim::ScenarioError>(&loaded))
        return fail(kUsage, error->message());

    auto clock = std::make_shared<platform::SystemClock>();
    auto mainQueue = std::make_shared<platform::LoopMainQueue>();
    sim::SimMachine machine(std::get<sim::Scenario>(std::move(loaded)), clock, mainQueue);
    const auto stateFile = sim::statePathFor(options.scenario);
    sim::restoreState(machine, stateFile, "panelwright-cli");
    if (options.trace)
        machine.bus().setObserver(
            [processStart](const sim::BusTransfer& t) { traceTransfer(t, processStart); });
    // The user's own settings, as the tray app reads them: friendly names, the longer
    // delay and the stable key all act the same from the command line.
    auto installed = machine.platform();
    installed.defaults = std::make_shared<platform::JsonUserDefaults>();
    int status = kOK;
    {
        // Gone before the state is saved: its managers finish their queued work first.
        const Core core(installed, Core::Parts::displaysOnly);
        status = runCommand(core, mainQueue, request, options);
    }
    sim::saveState(machine, stateFile, "panelwright-cli");
    machine.bus().setObserver({});
    return status;
}

// The command line's own diagnostic log, beside the app's so that the two never empty each
// other's: $XDG_STATE_HOME/panelwright/panelwright-cli.log, emptied at every run.
void startDiagnosticLog(bool verbose) {
    auto host = std::make_shared<platform::LinuxHostFacts>(platform::xdg::stateHome() /
                                                          "panelwright" / "panelwright-cli.log");
    DiagnosticLog::start(std::move(host), std::make_shared<platform::SystemClock>());
    if (verbose) DiagnosticLog::echoTo(STDERR_FILENO);
    DiagnosticLog::writeBanner();
}

// --- config ------------------------------------------------------------------------------

int config(const std::string& action, const Options& options) {
    platform::JsonUserDefaults store;
    if (action == "list") {
        json out = json::object();
        for (const auto& key : store.keys()) {
            const auto value = store.object(key);
            if (!value) continue;
            if (options.json)
                std::visit([&](const auto& v) { out[key] = v; }, *value);
            else
                std::cout << key << " = " << settingText(*value) << "\n";
        }
        if (options.json) std::cout << out.dump(2) << "\n";
        return kOK;
    }
    if (action == "get") {
        const auto value = store.object(options.key);
        if (!value) return fail(kNoAnswer, options.key + " is not set");
        if (options.json)
            std::visit([&](const auto& v) { std::cout << json(v).dump() << "\n"; }, *value);
        else
            std::cout << settingText(*value) << "\n";
        return kOK;
    }
    if (action == "unset") {
        store.remove(options.key);
        return kOK;
    }
    std::string error;
    const auto value = parseSetting(options.key, options.value, error);
    if (!value) return fail(kUsage, error);
    Preferences::storeSetting(store, options.key, *value);
    if (options.key == Preferences::kDDCRetryCount &&
        std::get<std::int64_t>(*value) > kMaxDDCPasses)
        std::cerr << "panelwright-cli: note: reads and writes make at most " << kMaxDDCPasses
                  << " passes, whatever ddcRetryCount says\n";
    return kOK;
}

} // namespace
} // namespace pw::cli

int main(int argc, char** argv) {
    using namespace pw::cli;
    const auto processStart = pw::platform::SystemClock().now();

    CLI::App app{"Reads and changes external monitors' settings over DDC/CI.", "panelwright-cli"};
    app.set_version_flag("--version", std::string("panelwright-cli ") + PW_VERSION);
    app.require_subcommand(1);
    app.fallthrough(); // global options may follow the subcommand too
    app.footer(R"(Examples:
  panelwright-cli --simulate scenarios/one-monitor.json detect
  panelwright-cli --simulate scenarios/one-monitor.json getvcp brightness 0x12 contrast
  panelwright-cli --simulate scenarios/one-monitor.json setvcp brightness 70
  panelwright-cli --simulate scenarios/one-monitor.json --display 1 setvcp inputSource hdmi1
  panelwright-cli config set ddcRetryCount 5

Without --simulate the commands drive this machine's monitors (Linux: DRM and i2c-dev).

Each run writes its diagnostic log to $XDG_STATE_HOME/panelwright/panelwright-cli.log
(~/.local/state/panelwright/panelwright-cli.log); --verbose shows it on stderr too.

Exit status: 0 success, 1 the monitor did not answer (or a config key is not set),
2 usage error or malformed scenario, 3 no such display, or no display can be reached,
4 the monitor does not support the feature.)");

    Options options;
    std::uint32_t displayID = 0;
    app.add_option("--simulate", options.scenario, "Run on the simulated machine in SCENARIO")
        ->option_text("SCENARIO");
    auto* displayOption = app.add_option("--display", displayID,
                                         "Display id from detect (default: the first with DDC/CI)")
                              ->option_text("ID");
    app.add_flag("--json", options.json, "Print JSON instead of text");
    app.add_flag("--trace", options.trace, "Print every bus transfer on stderr");
    app.add_flag("--verbose", options.verbose,
                 "Print the diagnostic log's lines on stderr as they are written");
    app.add_flag("--force-i2c-address", options.forceI2CAddress,
                 "Talk to address 0x37 even while a kernel driver (ddcci) claims it");

    auto* detectCmd = app.add_subcommand("detect", "List the external displays");
    detectCmd->footer("Example: panelwright-cli --simulate scenarios/two-monitors-and-builtin.json "
                      "detect --json");
    auto* getCmd = app.add_subcommand("getvcp", "Read features by name, hex or decimal code");
    getCmd
        ->add_option("CODE", options.codes,
                     "brightness, contrast, volume, mute, inputSource, "
                     "0x10, 16, ...")
        ->required();
    getCmd->footer("Example: panelwright-cli --simulate scenarios/one-monitor.json getvcp "
                   "brightness 0x62");
    auto* setCmd = app.add_subcommand("setvcp", "Write one feature");
    setCmd->add_option("CODE", options.setCode, "Feature name or code")->required();
    setCmd
        ->add_option("VALUE", options.setValue,
                     "Decimal or 0x hex; input sources also by name (hdmi1, displayport1, usbc)")
        ->required();
    setCmd->footer("Example: panelwright-cli --simulate scenarios/one-monitor.json setvcp "
                   "inputSource hdmi2");

    auto* configCmd = app.add_subcommand("config", "Read and change the settings");
    configCmd->require_subcommand(1);
    configCmd->footer("Example: panelwright-cli config set ddcCacheTTL 0.5");
    auto* cfgGet = configCmd->add_subcommand("get", "Print one setting");
    cfgGet->add_option("KEY", options.key)->required();
    auto* cfgSet = configCmd->add_subcommand("set", "Store one setting, typed by its key");
    cfgSet->add_option("KEY", options.key)->required();
    cfgSet->add_option("VALUE", options.value)->required();
    auto* cfgUnset = configCmd->add_subcommand("unset", "Remove one setting");
    cfgUnset->add_option("KEY", options.key)->required();
    auto* cfgList = configCmd->add_subcommand("list", "Print every setting");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kUsage;
    }
    if (displayOption->count() > 0) options.displayID = displayID;

    if (*configCmd) {
        if (*cfgGet) return config("get", options);
        if (*cfgSet) return config("set", options);
        if (*cfgUnset) return config("unset", options);
        if (*cfgList) return config("list", options);
        return kUsage;
    }
    startDiagnosticLog(options.verbose);
    const Command command = *detectCmd ? Command::detect
                            : *getCmd  ? Command::getvcp
                                       : Command::setvcp;
    const int status = runOnMachine(command, options, processStart); // its Core is gone
    pw::DiagnosticLog::stop();
    return status;
}
