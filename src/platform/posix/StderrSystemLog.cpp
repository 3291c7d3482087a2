#include "platform/posix/StderrSystemLog.h"

#include <cerrno>
#include <string>
#include <unistd.h>

namespace pw::platform {

namespace {

std::string_view levelName(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return "debug";
    case LogLevel::info:
        return "info";
    case LogLevel::error:
        return "error";
    }
    return "info";
}

} // namespace

void StderrSystemLog::write(std::string_view subsystem, std::string_view category, LogLevel level,
                            std::string_view message) {
    if (static_cast<int>(level) < static_cast<int>(least_)) return;
    std::string line;
    line.reserve(subsystem.size() + category.size() + message.size() + 24);
    line += "panelwright[";
    line += subsystem;
    line += '/';
    line += category;
    line += "] ";
    line += levelName(level);
    line += ": ";
    line += message;
    line += '\n';

    // Straight to the descriptor in one write, not through stdio: nothing is held back in
    // a buffer when the process dies, and the line goes out whole wherever the descriptor
    // allows it.
    std::lock_guard lock(mutex_);
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = ::write(fd_, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return; // stderr closed or full: nothing better to do
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace pw::platform
