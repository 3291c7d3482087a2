#pragma once

#include "platform/LoginItems.h"

#include <filesystem>
#include <functional>
#include <string>

namespace pw::platform {

// Starting at login on a freedesktop session: an autostart entry
// <config home>/autostart/panelwright.desktop, which the session manager runs at login.
// The file is the state: enabled means it exists and neither hides nor disables itself
// (Hidden=true, X-GNOME-Autostart-enabled=false), so an entry the user switched off in
// the desktop's own startup settings reads as off here too. Enabling writes the entry
// atomically (temp file and rename); disabling removes it.
class XdgAutostart final : public LoginItems {
public:
    using Report = std::function<void(const std::string&)>;

    // `configHome` is $XDG_CONFIG_HOME (or ~/.config); `executable` the program to start.
    XdgAutostart(std::filesystem::path configHome, std::filesystem::path executable,
                 Report report = {});

    bool isEnabled() const override;
    bool setEnabled(bool enabled) override;

    const std::filesystem::path& entryPath() const { return entry_; }
    // The entry's text for `executable`, the Exec line quoted where the path needs it.
    static std::string entryText(const std::filesystem::path& executable);
    // The program to start at login: the running binary when it is the app itself, else
    // `panelwright` next to it (a helper or test built beside it), else the running one.
    static std::filesystem::path appExecutable();

private:
    void report(const std::string& message) const;

    std::filesystem::path entry_;
    std::filesystem::path executable_;
    Report report_;
};

} // namespace pw::platform
