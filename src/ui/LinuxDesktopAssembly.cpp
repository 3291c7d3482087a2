#include "ui/DesktopAssembly.h"

#include "platform/WindowIndicator.h"
#include "platform/linux/desktop/Compositing.h"
#include "platform/linux/desktop/GammaChoice.h"
#include "platform/linux/desktop/KeysChoice.h"
#include "platform/linux/desktop/PlasmaOSD.h"
#include "platform/linux/desktop/SleepWatcher.h"
#include "platform/linux/desktop/XRandrScreens.h"
#include "platform/posix/BaseDirectories.h"

namespace pw::ui {
namespace {

using linuxdesktop::DesktopLog;
using linuxdesktop::DisplaySource;

// The displays as the kernel lists them, for pairing with the window system's outputs. EDIDs
// and connector names are offered, no connector ids: display ids are not always the
// connector ids the X server shows (older kernels number connectors themselves), and a wrong
// pair would dim another monitor. Names pair only with a Wayland compositor's outputs.
DisplaySource sourceFrom(std::shared_ptr<platform::DrmSysfs> drm) {
    DisplaySource source;
    source.displays = [drm] {
        std::vector<platform::DisplayID> ids;
        if (!drm) return ids;
        for (const auto& c : drm->connectors())
            if (c.connected()) ids.push_back(c.id);
        return ids;
    };
    source.edid = [drm](platform::DisplayID id) -> std::optional<std::vector<std::uint8_t>> {
        if (!drm) return std::nullopt;
        for (const auto& c : drm->connectors())
            if (c.id == id && !c.edid.empty()) return c.edid;
        return std::nullopt;
    };
    source.connectorName = [drm](platform::DisplayID id) -> std::optional<std::string> {
        if (!drm) return std::nullopt;
        for (const auto& c : drm->connectors())
            if (c.id == id) return c.name;
        return std::nullopt;
    };
    source.builtIn = [drm](platform::DisplayID id) {
        if (!drm) return false;
        for (const auto& c : drm->connectors())
            if (c.id == id) return c.builtin();
        return false;
    };
    return source;
}

} // namespace

std::shared_ptr<platform::PowerEvents>
assembleDesktop(platform::LinuxMachine& machine,
                std::shared_ptr<platform::IndicatorWindow> indicatorWindow) {
    platform::Platform& p = machine.platform;
    const DesktopLog log{p.systemLog};
    const auto session = linuxdesktop::SessionFacts::fromEnvironment();
    const DisplaySource source = sourceFrom(machine.drm);

    // Screens and pointer: the X server's (under Wayland, its X server still knows the
    // outputs' layout).
    if (!session.xDisplay) {
        log.info("Display", "No X display: screens and pointer unknown, keys act on the first monitor");
    } else if (auto screens = linuxdesktop::XRandrScreens::create(session.xDisplay, source, log)) {
        log.info("Display", "Screens and pointer from the X server (XRandR)");
        p.screens = std::move(screens);
    }

    p.gamma = linuxdesktop::chooseGamma(
        session, std::nullopt, source, log,
        std::make_shared<linuxdesktop::GammaJournal>(platform::xdg::stateHome() / "panelwright" /
                                                     "dimmed-gamma"));

    // Null: no media keys; the popover and the command line still work.
    p.mediaKeys = linuxdesktop::chooseKeys(session, std::nullopt, log);

    // Plasma's indicator where it answers, else our own window.
    p.indicator = linuxdesktop::PlasmaIndicator::create(std::nullopt, log);
    if (!p.indicator)
        p.indicator = platform::WindowIndicator::create(p.mainQueue, p.screens, indicatorWindow);

    return std::make_shared<linuxdesktop::LogindPowerEvents>(log);
}

std::shared_ptr<platform::MediaKeys> sessionKeys(const platform::Platform& p) {
    const auto session = linuxdesktop::SessionFacts::fromEnvironment();
    if (!session.xDisplay && !session.wayland()) return nullptr;
    return linuxdesktop::chooseKeys(session, std::nullopt, DesktopLog{p.systemLog});
}

bool windowSystemComposites() {
    return linuxdesktop::windowSystemComposites(linuxdesktop::SessionFacts::fromEnvironment());
}

} // namespace pw::ui
