#pragma once

#include <functional>

namespace pw {

// What the status item's click rules need from the desktop: the popover, the context
// menu and a watcher for clicks outside the program. Implemented by the GUI shell; every
// call is made on the main thread.
class StatusItemHost {
public:
    virtual ~StatusItemHost() = default;

    // Shows the popover under the status item and gives it keyboard focus.
    virtual void showPopover() = 0;
    virtual void closePopover() = 0;
    virtual bool isPopoverShown() const = 0;
    // Pops up the context menu at the status item.
    virtual void showContextMenu() = 0;
    // Starts watching for mouse presses outside the program; `onOutsideClick` runs on the
    // main thread for each. False when the desktop offers no such watcher.
    virtual bool installOutsideClickWatcher(std::function<void()> onOutsideClick) = 0;
    virtual void removeOutsideClickWatcher() = 0;
};

} // namespace pw
