#include "platform/sim/SimHostInfo.h"

#include "platform/posix/ProcessStack.h"

#include <unistd.h>

namespace pw::sim {

SimHostInfo::SimHostInfo(platform::Flavor flavor, std::filesystem::path logPath)
    : flavor_(flavor), logPath_(std::move(logPath)) {
    bundle_["CFBundleShortVersionString"] = std::string("0.1.0");
    bundle_["CFBundleVersion"] = std::string("1");
    bundle_["CFBundleIdentifier"] = std::string("com.panelwright.app");
    // The unwinder allocates when first loaded: now rather than in a signal handler.
    platform::loadStackUnwinder();
}

std::filesystem::path SimHostInfo::diagnosticLogPath() const {
    std::lock_guard lock(mutex_);
    return logPath_;
}

bool SimHostInfo::prepareDiagnosticLogFolder() const {
    std::error_code ec;
    const auto folder = diagnosticLogPath().parent_path();
    if (folder.empty()) return false;
    std::filesystem::create_directories(folder, ec);
    return !ec;
}

std::string SimHostInfo::operatingSystemLine() const {
    return flavor_ == platform::Flavor::linux ? "Linux 6.1.0" : "macOS 14.5.0";
}

std::string SimHostInfo::architectureLine() const {
    switch (flavor_) {
    case platform::Flavor::intel:
        return "Architecture: x86_64 (Intel)";
    case platform::Flavor::linux:
        return "Architecture: x86_64 (Linux)";
    case platform::Flavor::appleSilicon:
        return "Architecture: arm64 (Apple Silicon)";
    case platform::Flavor::unset:
        break;
    }
    return "Architecture: unknown";
}

std::string SimHostInfo::processName() const { return "Panelwright"; }

std::int64_t SimHostInfo::processId() const { return static_cast<std::int64_t>(::getpid()); }

std::optional<platform::BundleValue> SimHostInfo::bundleInfo(const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto it = bundle_.find(key);
    if (it == bundle_.end()) return std::nullopt;
    return it->second;
}

// The monitors are simulated, the process is not: a crash names the real frames.
std::vector<std::string> SimHostInfo::currentStackSymbols() const {
    return platform::processStackSymbols(1); // the caller wants its own stack
}

platform::HostInfo::StackWriter SimHostInfo::stackWriter() const {
    return platform::writeProcessStack;
}

void SimHostInfo::setLogPath(std::filesystem::path path) {
    std::lock_guard lock(mutex_);
    logPath_ = std::move(path);
}

void SimHostInfo::setBundleInfo(const std::string& key, std::optional<platform::BundleValue> value) {
    std::lock_guard lock(mutex_);
    if (value) bundle_[key] = *value;
    else bundle_.erase(key);
}

} // namespace pw::sim
