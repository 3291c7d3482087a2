#pragma once

#include "platform/SystemLog.h"
#include "support/Installed.h"

#include <memory>
#include <string>
#include <string_view>

// The system-log identity every subsystem writes through: subsystem = the build's
// identifier, else "com.panelwright.app"; one logger per category ("App", "DDC",
// "Display", "Keyboard", "OSD"), each a constant. Messages are formatted
// by the caller; the logger hands them to the installed sink (`Scope`, held by the Core),
// and drops them while none is installed.
namespace pw::platform {
class HostFacts;
}

namespace pw::SystemLog {

// Where messages go and under which subsystem they are filed.
struct Target {
    std::shared_ptr<platform::SystemLogSink> sink;
    std::string subsystem;
};

// Makes `sink` the one every logger writes to, for the scope's lifetime, filed under the
// build's identifier the host gives (else "com.panelwright.app"); puts back the one before. A
// thread logging while the scope ends finishes on the old sink.
class Scope {
public:
    Scope(std::shared_ptr<platform::SystemLogSink> sink, const platform::HostFacts* host);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    ScopedInstall<const Target> install_;
};

class Logger {
public:
    constexpr explicit Logger(std::string_view category) : category_(category) {}
    std::string_view category() const { return category_; }

    void debug(std::string_view message) const { write(platform::LogLevel::debug, message); }
    void info(std::string_view message) const { write(platform::LogLevel::info, message); }
    void error(std::string_view message) const { write(platform::LogLevel::error, message); }
    void write(platform::LogLevel level, std::string_view message) const;

private:
    std::string_view category_; // a literal
};

const Logger& app();
const Logger& ddc();
const Logger& display();
const Logger& keyboard();
const Logger& osd();

// The subsystem messages are filed under now.
std::string subsystem();

} // namespace pw::SystemLog
