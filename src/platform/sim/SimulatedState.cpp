#include "platform/sim/SimulatedState.h"

#include "platform/posix/BaseDirectories.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

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

} // namespace

std::filesystem::path statePathFor(const std::filesystem::path& scenarioFile) {
    std::error_code ec;
    auto absolute = std::filesystem::weakly_canonical(scenarioFile, ec);
    if (ec) absolute = std::filesystem::absolute(scenarioFile);
    return platform::xdg::stateHome() / "panelwright" / "simulated" /
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
    const std::string text = nlohmann::json{{"displays", displays}}.dump(2) + "\n";
    auto failed = [&](const std::string& why) {
        std::cerr << program << ": could not save the monitor values to " << stateFile.string()
                  << ": " << why << "\n";
    };
    // A name of its own for every run: runs on the same scenario at once each write their
    // own file, and the last rename wins whole.
    std::string temporary;
    int fd = -1;
    std::error_code ec;
    // Runs that start together also race to create the folders, and one may see another's
    // half-made path as an error: a second attempt finds them made.
    for (int attempt = 0; attempt < 3 && fd < 0; ++attempt) {
        std::filesystem::create_directories(stateFile.parent_path(), ec);
        temporary = stateFile.string() + ".XXXXXX";
        fd = ::mkstemp(temporary.data());
        if (fd < 0 && errno != ENOENT) break;
    }
    if (fd < 0) return failed(std::strerror(errno));
    bool written = true;
    for (std::string_view rest = text; written && !rest.empty();) {
        const ssize_t n = ::write(fd, rest.data(), rest.size());
        if (n < 0 && errno == EINTR) continue;
        written = n > 0;
        if (written) rest.remove_prefix(static_cast<std::size_t>(n));
    }
    const int writeError = errno;
    ::close(fd);
    if (!written) {
        ::unlink(temporary.c_str());
        return failed(std::strerror(writeError));
    }
    std::filesystem::rename(temporary, stateFile, ec);
    if (ec) {
        ::unlink(temporary.c_str());
        failed(ec.message());
    }
}

} // namespace pw::sim
