#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/LevelIndicator.h"
#include "platform/macos/OSDFramework.h"

namespace pw::platform::macos {

// The Mac's level indicator: the system's own, from the OSD framework loaded at run time,
// else `fallback` (our own window). The framework is loaded step by step at the first show
// and the outcome kept; the first step that fails logs its line and hands every show to
// the fallback from then on. Main thread.
class MacLevelIndicator final : public LevelIndicator {
public:
    using Log = std::function<void(std::string_view message)>;
    static constexpr std::int64_t kTotalChiclets = 16;
    static constexpr std::uint32_t kPriority = 500;
    static constexpr std::uint32_t kMsecUntilFade = 1000;

    // `framework` null: the machine has no such indicator. `fallback` may be null (then
    // levels are not shown when the system's indicator does not load).
    MacLevelIndicator(std::shared_ptr<OSDFramework> framework,
                      std::shared_ptr<LevelIndicator> fallback, Log log);

    void show(IndicatorKind kind, float level, DisplayID display) override;

    // Loads the system indicator now if that has not been tried; true when it is in use.
    bool loadSystemIndicator();

    // round(level x 16), halves away from zero, in single precision.
    static std::int64_t filledChiclets(float level);

private:
    std::shared_ptr<OSDFramework> framework_;
    std::shared_ptr<LevelIndicator> fallback_;
    Log log_;
    bool tried_ = false;
    std::shared_ptr<NativeOSDObject> system_;
};

} // namespace pw::platform::macos
