#pragma once

#include "base/Preferences.h"
#include "base/SystemLog.h"
#include "platform/Platform.h"

#include <memory>

namespace pw {

class DDCManager;
class DisplayManager;
class GammaManager;
class KeyboardManager;
class OSDManager;

// The composition root: the installed machine and every manager of the program, made in
// the order they depend on each other and let go in the reverse. A program (the tray app,
// the command line) builds one and destroys it before its application object and before
// `main` returns; nothing else makes managers. Each manager gets its collaborators here,
// through its constructor.
//
// The program's process-wide sinks (the system log's, the settings store behind the
// preferences) are the machine's for exactly the Core's lifetime (docs/architecture.md).
// Once every manager is gone, the workers of queues that ended themselves are joined.
class Core {
public:
    // What a program needs: the command line reads and writes monitors and has no keys or
    // level indicator.
    enum class Parts { all, displaysOnly };

    explicit Core(platform::Platform machine, Parts parts = Parts::all);
    ~Core();

    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    const platform::Platform& machine() const { return machine_; }
    const std::shared_ptr<DDCManager>& ddc() const { return ddc_; }
    const std::shared_ptr<GammaManager>& gamma() const { return gamma_; }
    const std::shared_ptr<DisplayManager>& displays() const { return displays_; }
    // Null with `Parts::displaysOnly`.
    const std::shared_ptr<OSDManager>& osd() const { return osd_; }
    const std::shared_ptr<KeyboardManager>& keyboard() const { return keyboard_; }

private:
    platform::Platform machine_;
    SystemLog::Scope systemLog_;
    Preferences::Scope preferences_;
    std::shared_ptr<DDCManager> ddc_;
    std::shared_ptr<GammaManager> gamma_;
    std::shared_ptr<DisplayManager> displays_;
    std::shared_ptr<OSDManager> osd_;
    std::shared_ptr<KeyboardManager> keyboard_;
};

} // namespace pw
