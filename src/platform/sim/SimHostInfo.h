#pragma once

#include <map>
#include <mutex>

#include "platform/HostInfo.h"
#include "platform/Platform.h"

namespace pw::sim {

// The simulated machine's process and bundle facts. The banner names the simulated
// Mac ("macOS 14.5.0", "Architecture: arm64 (Apple Silicon)" or the Intel line), or the
// simulated Linux machine ("Linux 6.1.0", "Architecture: x86_64 (Linux)").
// The log location is settable so tests write into their own folder. The stack is the
// process's real one.
class SimHostInfo final : public platform::HostInfo {
public:
    explicit SimHostInfo(platform::Flavor flavor, std::filesystem::path logPath = {});

    std::filesystem::path diagnosticLogPath() const override;
    bool prepareDiagnosticLogFolder() const override;
    std::string operatingSystemLine() const override;
    std::string architectureLine() const override;
    std::string processName() const override;
    std::int64_t processId() const override;
    std::optional<platform::BundleValue> bundleInfo(const std::string& key) const override;
    std::vector<std::string> currentStackSymbols() const override;
    StackWriter stackWriter() const override;

    void setLogPath(std::filesystem::path path);
    // Replaces or (with nothing) removes one entry of the bundle's information.
    void setBundleInfo(const std::string& key, std::optional<platform::BundleValue> value);

private:
    platform::Flavor flavor_;
    mutable std::mutex mutex_;
    std::filesystem::path logPath_;
    std::map<std::string, platform::BundleValue> bundle_;
};

} // namespace pw::sim
