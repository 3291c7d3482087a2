#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace pw::platform {

// A value of the application bundle's information dictionary. Keys the program
// reads: "CFBundleShortVersionString", "CFBundleVersion", "GitCommitHash",
// "NSHumanReadableCopyright", "CFBundleIdentifier".
using BundleValue = std::variant<std::string, std::int64_t>;

// Facts about the running process and machine, and where the program keeps its files.
class HostInfo {
public:
    virtual ~HostInfo() = default;

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

    virtual std::optional<BundleValue> bundleInfo(const std::string& key) const = 0;

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
