#pragma once

#include "platform/SystemLog.h"

#include <mutex>

namespace pw::platform {

// The system log of a machine without a better one: one line per message on standard
// error, "panelwright[subsystem/category] level: message". A message with line feeds is
// written as it is. Safe to call from any thread; lines never interleave.
class StderrSystemLog final : public SystemLogSink {
public:
    // Another descriptor than standard error is for tests.
    explicit StderrSystemLog(int fd = 2) : fd_(fd) {}

    void write(std::string_view subsystem, std::string_view category, LogLevel level,
               std::string_view message) override;

private:
    int fd_;
    std::mutex mutex_;
};

} // namespace pw::platform
