#include "platform/sim/SimHostFacts.h"

#include "platform/posix/ProcessStack.h"

#include <unistd.h>

namespace pw::sim {

SimHostFacts::SimHostFacts(Flavor flavor, std::filesystem::path logPath)
    : flavor_(flavor), logPath_(std::move(logPath)), build_(platform::thisBuild()) {
    // The unwinder allocates when first loaded: now rather than in a signal handler.
    platform::loadStackUnwinder();
}

std::filesystem::path SimHostFacts::diagnosticLogPath() const {
    std::lock_guard lock(mutex_);
    return logPath_;
}

bool SimHostFacts::prepareDiagnosticLogFolder() const {
    std::error_code ec;
    const auto folder = diagnosticLogPath().parent_path();
    if (folder.empty()) return false;
    std::filesystem::create_directories(folder, ec);
    return !ec;
}

std::string SimHostFacts::operatingSystemLine() const {
    return flavor_ == Flavor::linux ? "Linux 6.1.0" : "macOS 14.5.0";
}

std::string SimHostFacts::architectureLine() const {
    switch (flavor_) {
    case Flavor::intel:
        return "Architecture: x86_64 (Intel)";
    case Flavor::linux:
        return "Architecture: x86_64 (Linux)";
    case Flavor::appleSilicon:
        return "Architecture: arm64 (Apple Silicon)";
    }
    return "Architecture: unknown";
}

std::string SimHostFacts::processName() const { return "Panelwright"; }

std::int64_t SimHostFacts::processId() const { return static_cast<std::int64_t>(::getpid()); }

platform::BuildFacts SimHostFacts::build() const {
    std::lock_guard lock(mutex_);
    return build_;
}

// The monitors are simulated, the process is not: a crash names the real frames.
std::vector<std::string> SimHostFacts::currentStackSymbols() const {
    return platform::processStackSymbols(1); // the caller wants its own stack
}

platform::HostFacts::StackWriter SimHostFacts::stackWriter() const {
    return platform::writeProcessStack;
}

void SimHostFacts::setLogPath(std::filesystem::path path) {
    std::lock_guard lock(mutex_);
    logPath_ = std::move(path);
}

void SimHostFacts::setBuild(platform::BuildFacts build) {
    std::lock_guard lock(mutex_);
    build_ = std::move(build);
}

} // namespace pw::sim
