#pragma once

#include "platform/Clock.h"
#include "platform/LevelIndicator.h"
#include "platform/macos/OSDFramework.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pw::sim {

// The system indicator framework of the simulated Mac: present and working by
// default, or absent or broken at any loading step. Records every indicator call.
// Like the real one it answers only to its own path, class, selectors.
class SimOSDFramework final : public platform::macos::OSDFramework {
public:
    static constexpr std::string_view kPath = platform::macos::kOSDFrameworkPath;
    static constexpr std::string_view kClassName = platform::macos::kOSDManagerClass;
    static constexpr std::string_view kSharedSelector = platform::macos::kOSDSharedSelector;
    static constexpr std::string_view kShowSelector = platform::macos::kOSDShowSelector;

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
    std::shared_ptr<platform::macos::OSDBundle> createBundle(std::string_view path) override;

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

// Our own indicator window as the simulated machine has it: records each show (content and
// virtual time) and each hide.
class SimIndicatorWindow final : public platform::IndicatorWindow {
public:
    struct Show {
        platform::IndicatorContent content;
        platform::Clock::TimePoint at;
    };

    explicit SimIndicatorWindow(std::shared_ptr<platform::Clock> clock);
    void show(const platform::IndicatorContent& content) override;
    void hide() override;

    std::vector<Show> shows() const;
    std::vector<platform::Clock::TimePoint> hides() const;
    bool visible() const; // on screen now
    std::optional<platform::IndicatorContent> lastShown() const;

private:
    platform::Clock::TimePoint now() const;
    std::shared_ptr<platform::Clock> clock_;
    mutable std::mutex mutex_;
    bool visible_ = false;
    std::vector<Show> shows_;
    std::vector<platform::Clock::TimePoint> hides_;
};

// The level indicator of the simulated Linux machine: records what it was asked to show.
class SimLevelIndicator final : public platform::LevelIndicator {
public:
    struct Shown {
        platform::IndicatorKind kind;
        float level = 0;
        platform::DisplayID display = 0;
        platform::Clock::TimePoint at;
    };

    explicit SimLevelIndicator(std::shared_ptr<platform::Clock> clock);
    void show(platform::IndicatorKind kind, float level, platform::DisplayID display) override;
    std::vector<Shown> shown() const;

private:
    std::shared_ptr<platform::Clock> clock_;
    mutable std::mutex mutex_;
    std::vector<Shown> shown_;
};

} // namespace pw::sim
