#pragma once

#include "viewmodel/StatusItemHost.h"

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace pw {

class PopoverViewModel;

// One entry of the status item's context menu. A separator has an empty action.
struct ContextMenuItem {
    std::string_view title;
    std::string_view action;   // "showAbout", "checkForUpdates", "quitApp"
    std::string_view shortcut; // as a key sequence, "Ctrl+Q"; empty for none

    bool isSeparator() const { return action.empty(); }
};

// The click rules of the status item. A left click toggles the popover (reading the
// displays' values again before each opening); a right click closes the popover and
// shows the context menu. While the popover is open exactly one outside-click watcher
// exists, and every way of closing removes it. Main thread only.
class StatusBarController {
public:
    // `refreshBeforeOpening` runs once before each opening of the popover.
    StatusBarController(StatusItemHost& host, std::function<void()> refreshBeforeOpening);
    // Refreshes `viewModel`, which must outlive the controller.
    StatusBarController(StatusItemHost& host, PopoverViewModel& viewModel);
    ~StatusBarController();

    StatusBarController(const StatusBarController&) = delete;
    StatusBarController& operator=(const StatusBarController&) = delete;

    void leftClick();
    void rightClick();
    // The host reports that the popover closed by itself (Escape, focus loss, ...).
    void popoverDidClose();

    bool hasOutsideClickWatcher() const { return watcherInstalled_; }

    // The context menu, in order: the shell renders it, the tests check it.
    static const std::vector<ContextMenuItem>& contextMenuItems();

private:
    void closePopover();
    void removeWatcher();

    StatusItemHost& host_;
    std::function<void()> refresh_;
    bool watcherInstalled_ = false;
    // The watcher's callback holds this weakly, so a late outside click does nothing.
    std::shared_ptr<StatusBarController*> life_;
};

} // namespace pw
