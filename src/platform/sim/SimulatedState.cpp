#include "platform/sim/SimulatedState.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <system_error>

namespace pw::sim {
namespace {

// FNV-1a: stable across runs and builds, which std::hash does not promise.
std::string shortHash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (char c : text) {
        hash ^= static_cast<std::uint8_t>(c);
        hash *= 1099511628211ull;
    }
    char out[9];
    std::snprintf(out, sizeof out, "%08llx", static_cast<unsigned long long>(hash & 0xFFFFFFFFu));
    return out;
}

std::filesystem::path stateHome() {
    const char* xdg = std::getenv("XDG_STATE_HOME");
    if (xdg && *xdg && std::filesystem::path(xdg).is_absolute()) return xdg;
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home && *home ? home : ".") / ".local" / "state";
}

} // namespace

std::filesystem::path statePathFor(const std::filesystem::path& scenarioFile) {
    std::error_code ec;
    auto absolute = std::filesystem::weakly_canonical(scenarioFile, ec);
    if (ec) absolute = std::filesystem::absolute(scenarioFile);
    return stateHome() / "panelwright" / "simulated" /
           (scenarioFile.stem().string() + "-" + shortHash(absolute.string()) + ".json");
}

// File format: {"displays": {"<display id>": {"<code>": [current, max], ...}, ...}}
void restoreState(SimMachine& machine, const std::filesystem::path& stateFile,
                  std::string_view program) {
    std::ifstream in(stateFile);
    if (!in) return;
    std::stringstream text;
    text << in.rdbuf();
    try {
        const auto state = nlohmann::json::parse(text.str());
        for (const auto& [id, features] : state.at("displays").items()) {
            const auto monitor = machine.monitor(static_cast<platform::DisplayID>(std::stoul(id)));
            if (!monitor) continue; // the scenario changed since: its display is gone
            for (const auto& [code, value] : features.items())
                monitor->setFeature(static_cast<std::uint8_t>(std::stoul(code)),
                                    value.at(0).get<std::uint16_t>(),
                                    value.at(1).get<std::uint16_t>());
        }
    } catch (const std::exception& error) {
        std::cerr << program << ": ignoring the saved monitor values in " << stateFile.string()
                  << ": " << error.what() << "\n";
    }
}

void saveState(const SimMachine& machine, const std::filesystem::path& stateFile,
               std::string_view program) {
    nlohmann::json displays = nlohmann::json::object();
    for (const auto& display : machine.activeDisplays()) {
        const auto monitor = machine.monitor(display.id);
        if (!monitor) continue;
        nlohmann::json features = nlohmann::json::object();
        for (const auto& [code, feature] : monitor->snapshot().features)
            features[std::to_string(code)] = {feature.current, feature.max};
        displays[std::to_string(display.id)] = std::move(features);
    }
    std::error_code ec;
    std::filesystem::create_directories(stateFile.parent_path(), ec);
    const auto temporary = stateFile.string() + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << nlohmann::json{{"displays", displays}}.dump(2) << "\n";
        if (!out) {
            std::cerr << program << ": could not save the monitor values to "
                      << stateFile.string() << "\n";
            return;
        }
    }
    std::filesystem::rename(temporary, stateFile, ec);
    if (ec)
        std::cerr << program << ": could not save the monitor values to " << stateFile.string()
                  << ": " << ec.message() << "\n";
}

} // namespace pw::sim
