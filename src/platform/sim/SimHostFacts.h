#pragma once

#include <mutex>

#include "platform/HostFacts.h"
#include "platform/sim/Flavor.h"

namespace pw::sim {

// The simulated machine's process and build facts. The banner names the simulated
// Mac ("macOS 14.5.0", "Architecture: arm64 (Apple Silicon)" or the Intel line), or the
// simulated Linux machine ("Linux 6.1.0", "Architecture: x86_64 (Linux)"). The build is
// this one until a test gives another. The log location is settable so tests write into
// their own folder. The stack is the process's real one.
class SimHostFacts final : public platform::HostFacts {
public:
    explicit SimHostFacts(Flavor flavor, std::filesystem::path logPath = {});

    std::filesystem::path diagnosticLogPath() const override;
    bool prepareDiagnosticLogFolder() const override;
    std::string operatingSystemLine() const override;
    std::string architectureLine() const override;
    std::string processName() const override;
    std::int64_t processId() const override;
    platform::BuildFacts build() const override;
    std::vector<std::string> currentStackSymbols() const override;
    StackWriter stackWriter() const override;

    void setLogPath(std::filesystem::path path);
    void setBuild(platform::BuildFacts build);

private:
    Flavor flavor_;
    mutable std::mutex mutex_;
    std::filesystem::path logPath_;
    platform::BuildFacts build_;
};

} // namespace pw::sim
