#include "viewmodel/StatusBarController.h"

#include "viewmodel/PopoverViewModel.h"

#include <utility>

namespace pw {

StatusBarController::StatusBarController(StatusItemHost& host,
                                         std::function<void()> refreshBeforeOpening)
    : host_(host), refresh_(std::move(refreshBeforeOpening)),
      life_(std::make_shared<StatusBarController*>(this)) {}

StatusBarController::StatusBarController(StatusItemHost& host, PopoverViewModel& viewModel)
    : StatusBarController(host, [&viewModel] { viewModel.refresh(); }) {}

StatusBarController::~StatusBarController() {
    removeWatcher();
}

const std::vector<ContextMenuItem>& StatusBarController::contextMenuItems() {
    static const std::vector<ContextMenuItem> items = {
        {"About Panelwright", "showAbout", ""},
        {"Check for Updates\u2026", "checkForUpdates", ""},
        {"", "", ""},
        {"Quit Panelwright", "quitApp", "Ctrl+Q"},
    };
    return items;
}

void StatusBarController::leftClick() {
    if (host_.isPopoverShown()) {
        closePopover();
        return;
    }
    if (refresh_) refresh_();
    host_.showPopover();
    removeWatcher(); // never two
    watcherInstalled_ =
        host_.installOutsideClickWatcher([weak = std::weak_ptr<StatusBarController*>(life_)] {
            if (auto controller = weak.lock()) (*controller)->closePopover();
        });
}

void StatusBarController::rightClick() {
    closePopover();
    host_.showContextMenu();
}

void StatusBarController::popoverDidClose() {
    removeWatcher();
}

void StatusBarController::closePopover() {
    if (host_.isPopoverShown()) host_.closePopover();
    // The host may or may not report the close back; the watcher goes either way.
    removeWatcher();
}

void StatusBarController::removeWatcher() {
    if (!watcherInstalled_) return;
    watcherInstalled_ = false;
    host_.removeOutsideClickWatcher();
}

} // namespace pw
