#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/SystemLog.h"

namespace pw::linuxdesktop {

// Where the desktop pieces write their own lines: the system log the program installed,
// under the program's subsystem and the category of the feature ("Display", "Keyboard",
// "OSD", "App"). Without a sink the lines go to stderr, so nothing is ever lost silently.
struct DesktopLog {
    std::shared_ptr<platform::SystemLogSink> sink;
    std::string subsystem = "com.panelwright.app";

    void info(std::string_view category, std::string_view message) const;
    void error(std::string_view category, std::string_view message) const;
    void write(std::string_view category, platform::LogLevel level,
               std::string_view message) const;
    // The report a guarded C callback (platform/linux/CallbackGuard.h) gives its failure
    // to: one error line in `category`. Valid while this log is.
    auto errorsIn(std::string_view category) const {
        return [this, category](const std::string& line) { error(category, line); };
    }
};

} // namespace pw::linuxdesktop
