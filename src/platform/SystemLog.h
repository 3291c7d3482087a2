#pragma once

#include <string_view>

namespace pw::platform {

enum class LogLevel { debug, info, error };

// The platform's system log (the unified log on macOS, the journal on Linux,
// stderr when neither is there, memory in tests). Messages arrive fully formatted.
class SystemLogSink {
public:
    virtual ~SystemLogSink() = default;
    virtual void write(std::string_view subsystem, std::string_view category, LogLevel level,
                       std::string_view message) = 0;
};

} // namespace pw::platform
