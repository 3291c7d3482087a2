// Built where the desktop pieces are not (no libx11, libxrandr or libsystemd): the real
// machine runs with what the kernel gives, and the log says so once.
#include "ui/DesktopAssembly.h"

#include "platform/WindowIndicator.h"

namespace pw::ui {

std::shared_ptr<platform::PowerEvents>
assembleDesktop(platform::LinuxMachine& machine,
                std::shared_ptr<platform::IndicatorWindow> indicatorWindow) {
    platform::Platform& p = machine.platform;
    p.indicator = platform::WindowIndicator::create(p.mainQueue, p.screens, indicatorWindow);
    if (p.systemLog)
        p.systemLog->write("com.panelwright.app", "App", platform::LogLevel::info,
                           "Desktop features unavailable: built without the desktop "
                           "pieces (no dimming, media keys, desktop indicator or wake-up "
                           "reports)");
    return nullptr;
}

std::shared_ptr<platform::MediaKeys> sessionKeys(const platform::Platform&) { return nullptr; }

bool windowSystemComposites() { return false; }

} // namespace pw::ui
