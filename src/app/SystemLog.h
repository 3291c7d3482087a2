#pragma once

#include "platform/SystemLog.h"

#include <string>
#include <string_view>

// The system-log identity every subsystem writes through: subsystem = the bundle
// identifier, else "com.panelwright.app"; one logger per category ("App", "DDC",
// "Display", "Keyboard", "OSD"), created once on first use. Messages are formatted
// by the caller; the logger hands them to the installed platform sink.
namespace pw::SystemLog {

class Logger {
public:
    explicit Logger(std::string category) : category_(std::move(category)) {}
    const std::string& category() const { return category_; }

    void debug(std::string_view message) const { write(platform::LogLevel::debug, message); }
    void info(std::string_view message) const { write(platform::LogLevel::info, message); }
    void error(std::string_view message) const { write(platform::LogLevel::error, message); }
    void write(platform::LogLevel level, std::string_view message) const;

private:
    std::string category_;
};

const Logger& app();
const Logger& ddc();
const Logger& display();
const Logger& keyboard();
const Logger& osd();

// The subsystem every message is filed under. Settled at the first message sent while a
// platform with host facts is installed, and kept for the rest of the run.
std::string subsystem();

// Forgets the settled subsystem, so a test can install another host. Not used by the program.
void resetForTesting();

} // namespace pw::SystemLog
