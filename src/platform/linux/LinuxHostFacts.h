#pragma once

#include "platform/HostFacts.h"

#include <string_view>

namespace pw::platform {

// The running Linux process and machine. The log lives under the XDG state folder; the
// build facts are the ones the program was built with.
class LinuxHostFacts final : public HostFacts {
public:
    // Takes the log location from the environment once: it does not move during a run.
    LinuxHostFacts();
    explicit LinuxHostFacts(std::filesystem::path logPath);

    // $XDG_STATE_HOME/panelwright/Panelwright.log. An unset, empty or relative
    // XDG_STATE_HOME means $HOME/.local/state; an empty HOME means the home folder of the
    // password database.
    static std::filesystem::path logPathFor(std::string_view xdgStateHome, std::string_view home);
    // The leading "major.minor.patch" of a kernel release ("6.1.0-18-amd64" -> "6.1.0"),
    // missing parts as 0; the release as it is when it does not start with a number.
    static std::string kernelVersion(std::string_view release);

    std::filesystem::path diagnosticLogPath() const override { return logPath_; }
    // Creates the missing folders with owner-only access, as the state folder should be.
    bool prepareDiagnosticLogFolder() const override;
    std::string operatingSystemLine() const override;
    std::string architectureLine() const override;
    std::string processName() const override;
    std::int64_t processId() const override;
    BuildFacts build() const override { return thisBuild(); }
    std::vector<std::string> currentStackSymbols() const override;
    StackWriter stackWriter() const override;

private:
    std::filesystem::path logPath_;
};

} // namespace pw::platform
