#include "platform/linux/desktop/DesktopLog.h"

#include <cstdio>

namespace pw::linuxdesktop {

void DesktopLog::info(std::string_view category, std::string_view message) const {
    write(category, platform::LogLevel::info, message);
}

void DesktopLog::error(std::string_view category, std::string_view message) const {
    write(category, platform::LogLevel::error, message);
}

void DesktopLog::write(std::string_view category, platform::LogLevel level,
                       std::string_view message) const {
    if (sink) return sink->write(subsystem, category, level, message);
    std::fprintf(stderr, "[%.*s] %.*s\n", static_cast<int>(category.size()), category.data(),
                 static_cast<int>(message.size()), message.data());
}

} // namespace pw::linuxdesktop
