#pragma once

#include "platform/Clock.h"
#include "platform/OSD.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pw::sim {

// The system indicator framework of the simulated machine: present and working by
// default, or absent or broken at any loading step. Records every indicator call.
// Like the real one it answers only to its own path, class, selectors.
class SimOSDFramework final : public platform::OSDFramework {
public:
    static constexpr std::string_view kPath = platform::kOSDFrameworkPath;
    static constexpr std::string_view kClassName = platform::kOSDManagerClass;
    static constexpr std::string_view kSharedSelector = platform::kOSDSharedSelector;
    static constexpr std::string_view kShowSelector = platform::kOSDShowSelector;

    // Where loading breaks down.
    enum class Fault {
        none,
        noBundle,       // no framework at the path
        loadFails,      // its executable does not load
        classMissing,   // no indicator class
        noSharedObject, // the class gives no shared object
        doesNotRespond, // the shared object lacks the show selector
    };

    struct ShowImageCall {
        std::int64_t image = 0;
        std::uint32_t displayID = 0;
        std::uint32_t priority = 0;
        std::uint32_t msecUntilFade = 0;
        std::uint32_t filledChiclets = 0;
        std::uint32_t totalChiclets = 0;
        bool locked = false;
        bool operator==(const ShowImageCall&) const = default;
    };

    SimOSDFramework();
    ~SimOSDFramework() override;
    std::shared_ptr<platform::OSDBundle> createBundle(std::string_view path) override;

    void setFault(Fault fault);
    Fault fault() const;
    std::vector<ShowImageCall> showImageCalls() const;
    // Every loading request as "<operation> <argument>", in order, e.g.
    // "createBundle /System/...", "loadExecutable", "respondsToSelector showImage:...".
    std::vector<std::string> requests() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

// Fallback indicator windows: records each window made, each show (content and virtual
// time) and each hide.
class SimLevelIndicators final : public platform::LevelIndicators {
public:
    struct Show {
        platform::IndicatorContent content;
        platform::Clock::TimePoint at;
        std::size_t window = 0; // which window (0 = the first made)
    };
    struct Hide {
        platform::Clock::TimePoint at;
        std::size_t window = 0;
    };

    explicit SimLevelIndicators(std::shared_ptr<platform::Clock> clock);
    ~SimLevelIndicators() override;
    std::shared_ptr<platform::LevelIndicatorWindow> createWindow() override;

    std::size_t windowsCreated() const;
    std::vector<Show> shows() const;
    std::vector<Hide> hides() const;
    // Whether any window is on screen now.
    bool visible() const;
    // The content of the last show, if any.
    std::optional<platform::IndicatorContent> lastShown() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace pw::sim
