#include "platform/sim/MemorySystemLog.h"

namespace pw::sim {

void MemorySystemLog::write(std::string_view subsystem, std::string_view category,
                            platform::LogLevel level, std::string_view message) {
    std::lock_guard lock(mutex_);
    entries_.push_back({std::string(subsystem), std::string(category), level, std::string(message)});
}

std::vector<MemorySystemLog::Entry> MemorySystemLog::entries() const {
    std::lock_guard lock(mutex_);
    return entries_;
}

std::vector<std::string> MemorySystemLog::messages(std::string_view category) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& e : entries_)
        if (e.category == category) out.push_back(e.message);
    return out;
}

bool MemorySystemLog::contains(std::string_view category, platform::LogLevel level,
                               std::string_view message) const {
    std::lock_guard lock(mutex_);
    for (const auto& e : entries_)
        if (e.category == category && e.level == level && e.message == message) return true;
    return false;
}

void MemorySystemLog::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

} // namespace pw::sim
