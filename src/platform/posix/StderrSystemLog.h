#pragma once

#include "platform/SystemLog.h"

#include <mutex>

namespace pw::platform {

// The system log of a machine without a better one: one line per message on standard
// error, "panelwright[subsystem/category] level: message". A message with line feeds is
// written as it is. Safe to call from any thread; lines never interleave.
// Debug messages are left out: a terminal is for what a person should read, and the
// diagnostic log file keeps the detail.
class StderrSystemLog final : public SystemLogSink {
public:
    // Another descriptor than standard error, or a lower floor, is for tests.
    explicit StderrSystemLog(int fd = 2, LogLevel least = LogLevel::info)
        : fd_(fd), least_(least) {}

    void write(std::string_view subsystem, std::string_view category, LogLevel level,
               std::string_view message) override;

private:
    int fd_;
    LogLevel least_;
    std::mutex mutex_;
};

} // namespace pw::platform
