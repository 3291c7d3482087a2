#include "base/SystemLog.h"

#include "platform/HostFacts.h"

#include <memory>

namespace pw::SystemLog {

namespace {

constexpr std::string_view kFallbackSubsystem = "com.panelwright.app";

constinit NeverDestroyed<InstalledSlot<const Target>> gTarget;

std::shared_ptr<const Target> makeTarget(std::shared_ptr<platform::SystemLogSink> sink,
                                         const platform::HostFacts* host) {
    auto target = std::make_shared<Target>();
    target->sink = std::move(sink);
    target->subsystem = std::string(kFallbackSubsystem);
    if (host) {
        std::string identifier = host->build().identifier;
        if (!identifier.empty()) target->subsystem = std::move(identifier);
    }
    return target;
}

} // namespace

Scope::Scope(std::shared_ptr<platform::SystemLogSink> sink, const platform::HostFacts* host)
    : install_(gTarget.value, makeTarget(std::move(sink), host)) {}

Scope::~Scope() = default;

void Logger::write(platform::LogLevel level, std::string_view message) const {
    const auto target = gTarget.value.get();
    if (target && target->sink) target->sink->write(target->subsystem, category_, level, message);
}

// One logger per category: constants, nothing to make or to let go.
constinit const Logger kApp{"App"}, kDDC{"DDC"}, kDisplay{"Display"}, kKeyboard{"Keyboard"},
    kOSD{"OSD"};
const Logger& app() { return kApp; }
const Logger& ddc() { return kDDC; }
const Logger& display() { return kDisplay; }
const Logger& keyboard() { return kKeyboard; }
const Logger& osd() { return kOSD; }

std::string subsystem() {
    const auto target = gTarget.value.get();
    return target ? target->subsystem : std::string(kFallbackSubsystem);
}

} // namespace pw::SystemLog
