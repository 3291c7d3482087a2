#include "app/SystemLog.h"

#include "platform/Platform.h"

#include <memory>
#include <mutex>
#include <optional>
#include <variant>

namespace pw::SystemLog {

namespace {

constexpr std::string_view kFallbackSubsystem = "com.panelwright.app";

struct Identity {
    std::mutex mutex;
    std::optional<std::string> subsystem;
};

// Never destroyed: threads still logging while the process exits must find it.
Identity& identity() {
    static Identity* const instance = new Identity;
    return *instance;
}

} // namespace

void Logger::write(platform::LogLevel level, std::string_view message) const {
    if (auto sink = platform::snapshot()->systemLog)
        sink->write(subsystem(), category_, level, message);
}

// One logger per category, made on first use and kept until the process ends.
const Logger& app() {
    static const Logger* const logger = new Logger("App");
    return *logger;
}
const Logger& ddc() {
    static const Logger* const logger = new Logger("DDC");
    return *logger;
}
const Logger& display() {
    static const Logger* const logger = new Logger("Display");
    return *logger;
}
const Logger& keyboard() {
    static const Logger* const logger = new Logger("Keyboard");
    return *logger;
}
const Logger& osd() {
    static const Logger* const logger = new Logger("OSD");
    return *logger;
}

std::string subsystem() {
    Identity& id = identity();
    std::lock_guard lock(id.mutex);
    if (id.subsystem) return *id.subsystem;
    const auto host = platform::snapshot()->host;
    // Without host facts nothing is settled yet: a message logged before the platform is
    // installed must not fix the identity for the whole run.
    if (!host) return std::string(kFallbackSubsystem);
    const auto value = host->bundleInfo("CFBundleIdentifier");
    const std::string* text = value ? std::get_if<std::string>(&*value) : nullptr;
    id.subsystem = text && !text->empty() ? *text : std::string(kFallbackSubsystem);
    return *id.subsystem;
}

void resetForTesting() {
    Identity& id = identity();
    std::lock_guard lock(id.mutex);
    id.subsystem.reset();
}

} // namespace pw::SystemLog
