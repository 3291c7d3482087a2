#pragma once

namespace pw::platform {

// Whether the program starts by itself when the user logs in. `isEnabled` reports the
// real state of the system's registration (not a stored wish); `setEnabled` changes it at
// once and says whether that worked.
class LoginItems {
public:
    virtual ~LoginItems() = default;
    virtual bool isEnabled() const = 0;
    virtual bool setEnabled(bool enabled) = 0;
};

} // namespace pw::platform
