#include "app/Core.h"

#include "ddc/DDCManager.h"
#include "display/DisplayManager.h"
#include "gamma/GammaManager.h"
#include "keyboard/KeyboardManager.h"
#include "osd/OSDManager.h"
#include "support/SerialQueue.h"

namespace pw {

Core::Core(platform::Platform machine, Parts parts)
    : machine_(std::move(machine)), systemLog_(machine_.systemLog, machine_.host.get()),
      preferences_(machine_.defaults) {
    ddc_ = std::make_shared<DDCManager>(machine_.clock, machine_.mainQueue);
    gamma_ = std::make_shared<GammaManager>(machine_.gamma);
    displays_ = std::make_shared<DisplayManager>(machine_, ddc_);
    if (parts == Parts::displaysOnly) return;
    osd_ = OSDManager::create(machine_);
    keyboard_ = std::make_shared<KeyboardManager>(machine_, displays_, ddc_, osd_, gamma_);
}

Core::~Core() {
    // The reverse of the construction. A manager's destructor joins its workers; work
    // still queued on another thread holds its manager only weakly and ends without effect.
    keyboard_.reset();
    osd_.reset();
    displays_.reset();
    gamma_.reset();
    ddc_.reset();
    SerialQueue::joinOrphans();
    // The system log's sink and the settings store go last, as members.
}

} // namespace pw
