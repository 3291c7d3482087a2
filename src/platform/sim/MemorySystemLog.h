#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/SystemLog.h"

namespace pw::sim {

// A system log that keeps every message in memory, for tests to read back.
class MemorySystemLog final : public platform::SystemLogSink {
public:
    struct Entry {
        std::string subsystem;
        std::string category;
        platform::LogLevel level;
        std::string message;
    };

    void write(std::string_view subsystem, std::string_view category, platform::LogLevel level,
               std::string_view message) override;

    std::vector<Entry> entries() const;
    // Messages of one category (all levels), in order.
    std::vector<std::string> messages(std::string_view category) const;
    bool contains(std::string_view category, platform::LogLevel level,
                  std::string_view message) const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

} // namespace pw::sim
