#pragma once

#include <map>
#include <mutex>

#include "platform/UserDefaults.h"

namespace pw::sim {

// A user-defaults store held in memory: the simulated machine's settings.
class MemoryUserDefaults final : public platform::UserDefaults {
public:
    std::optional<platform::DefaultsValue> object(std::string_view key) override;
    void set(std::string_view key, const platform::DefaultsValue& value) override;
    void remove(std::string_view key) override;
    std::vector<std::string> keys() override;

private:
    std::mutex mutex_;
    std::map<std::string, platform::DefaultsValue, std::less<>> values_;
};

} // namespace pw::sim
