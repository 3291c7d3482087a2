#pragma once

namespace pw::platform {

// Whether the program starts by itself when the user logs in. The state is the
// system's own (on Linux an autostart entry), never a stored copy, so a window
// shows what will really happen at the next login.
class LoginItems {
public:
    virtual ~LoginItems() = default;
    // The real state: the entry exists and is not hidden or disabled.
    virtual bool isEnabled() const = 0;
    // Writes or removes the entry at once. False on failure, which is logged.
    virtual bool setEnabled(bool enabled) = 0;
};

} // namespace pw::platform
