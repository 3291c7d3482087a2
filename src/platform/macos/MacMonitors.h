#pragma once

#include "platform/Monitors.h"
#include "platform/macos/MacPairing.h"
#include "platform/macos/MacParts.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pw::macos {

// A Mac's monitors: the window server's active displays, each external one paired with
// its I2C channel (Apple Silicon: the connections' AV services, paired up front by EDID
// identity; Intel: the framebuffer the window server names, else the best-scoring one of
// all framebuffers), named as the system names it. Apple's own displays are left out:
// the system controls them itself. Hot-plug reports come from a registry watch.
class MacMonitors final : public platform::Monitors {
public:
    static constexpr std::uint32_t kMaxDisplays = 16;
    static constexpr std::uint32_t kAppleVendor = 0x0610;
    // The registry class whose appearance and disappearance means a display came or went.
    static constexpr std::string_view kAppleSiliconWatchedClass = "AppleCLCD2";
    static constexpr std::string_view kIntelWatchedClass = "IODisplay";
    // Framebuffer I2C misbehaves when probes of different displays follow too closely.
    static constexpr std::chrono::milliseconds kIntelProbeGap{200};

    explicit MacMonitors(MacParts parts);
    ~MacMonitors() override;

    std::vector<platform::MonitorInfo> connected(std::optional<platform::DisplayID> only) override;
    std::string architectureLine() override;
    platform::Clock::Duration probeSpacing() override;
    bool watch(std::function<void()> onChange) override;

    // The display's name from the system (product-name map, then screen name, then
    // "Display <vendor>-<model>"), or nothing.
    std::optional<std::string> systemName(platform::DisplayID id);
    // Built-in panels and Apple's own displays, which the system controls itself.
    bool isAppleDisplay(platform::DisplayID id, std::uint32_t vendor);

    // The registry watch, for tests.
    platform::NotificationPort notificationPort() const { return notificationPort_; }
    platform::IOObject addedIterator() const { return addedIterator_; }
    platform::IOObject removedIterator() const { return removedIterator_; }

private:
    class Channels;

    MacParts parts_;
    platform::NotificationPort notificationPort_ = 0;
    platform::IOObject addedIterator_ = 0;
    platform::IOObject removedIterator_ = 0;
    bool watching_ = false;
    // What the registry's handler calls while this object lives (it holds it weakly): the
    // latest caller of `watch`.
    std::shared_ptr<std::function<void()>> onChange_ = std::make_shared<std::function<void()>>();
};

} // namespace pw::macos
