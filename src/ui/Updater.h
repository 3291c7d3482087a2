#pragma once

namespace pw::ui {

// What "Check for Updates…" talks to. On Linux the program is updated by the system's
// package manager, so the shell's updater says exactly that and checks nothing itself.
class Updater {
public:
    virtual ~Updater() = default;
    virtual void checkForUpdates() = 0;
};

class PackageManagerUpdater final : public Updater {
public:
    void checkForUpdates() override;
};

} // namespace pw::ui
