#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace pw::platform {

// What this build of the program is. An empty field is one the build does not know.
struct BuildFacts {
    std::string version;     // "0.1.0"
    std::string buildNumber; // "1"
    std::string commit;      // the source commit, empty outside a checkout
    std::string copyright;   // "© 2026 The Panelwright developers"
    std::string identifier;  // "com.panelwright.app": the system log's subsystem
};

// The facts the build was made with (version, build number and commit as the build
// passed them). Linux and the simulated machine answer these; a Mac reads its own from
// the application's information file.
BuildFacts thisBuild();

// Facts about the running process and machine, and where the program keeps its files.
class HostFacts {
public:
    virtual ~HostFacts() = default;

    // Where the diagnostic log lives (macOS: ~/Library/Logs/Panelwright.log;
    // Linux: $XDG_STATE_HOME/panelwright/Panelwright.log).
    virtual std::filesystem::path diagnosticLogPath() const = 0;
    // Makes sure the folder of the diagnostic log exists where the platform
    // creates it; false if it could not be made.
    virtual bool prepareDiagnosticLogFolder() const = 0;

    // Banner lines: "macOS 14.2.1" / "Linux 6.1.0"; "Architecture: arm64 (Apple Silicon)".
    virtual std::string operatingSystemLine() const = 0;
    virtual std::string architectureLine() const = 0;

    virtual std::string processName() const = 0;
    virtual std::int64_t processId() const = 0;

    // This build's version, number, commit, copyright and identifier.
    virtual BuildFacts build() const = 0;

    // Symbols of the calling thread's stack, innermost first.
    virtual std::vector<std::string> currentStackSymbols() const = 0;
    // Writes the calling thread's symbols, one per line, straight to an open file.
    // The fatal-signal handler calls it, so it must not lock, allocate or depend on the
    // object that handed it out (the handler may run while that object is being torn down).
    using StackWriter = void (*)(int fd);
    // The platform's writer, asked once when crash handling is set up; null when the
    // platform has none (the crash lines then carry no symbols).
    virtual StackWriter stackWriter() const { return nullptr; }
};

} // namespace pw::platform
