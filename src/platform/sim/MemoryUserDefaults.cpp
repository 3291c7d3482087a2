#include "platform/sim/MemoryUserDefaults.h"

namespace pw::sim {

std::optional<platform::DefaultsValue> MemoryUserDefaults::object(std::string_view key) {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void MemoryUserDefaults::set(std::string_view key, const platform::DefaultsValue& value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), value);
}

void MemoryUserDefaults::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it != values_.end()) values_.erase(it);
}

std::vector<std::string> MemoryUserDefaults::keys() {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& [k, v] : values_) out.push_back(k);
    return out;
}

} // namespace pw::sim
