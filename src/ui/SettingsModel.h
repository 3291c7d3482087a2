#pragma once

#include "display/ExternalDisplay.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <memory>
#include <vector>

namespace pw::platform {
class LoginItems;
class UserDefaults;
} // namespace pw::platform

namespace pw::ui {

class Updater;

// What the settings window shows and changes, for its QML views. Every setter writes its
// preference key at once; nothing waits for a save step. The general values are read again
// by `reload` (each time the window is shown), the rows of the Displays tab when the set
// of displays changes.
class SettingsModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(int startupAction READ startupAction NOTIFY generalChanged)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY generalChanged)
    Q_PROPERTY(bool launchAtLoginAvailable READ launchAtLoginAvailable CONSTANT)
    Q_PROPERTY(QString launchAtLoginNote READ launchAtLoginNote NOTIFY generalChanged)
    Q_PROPERTY(bool showOSD READ showOSD NOTIFY generalChanged)
    Q_PROPERTY(bool automaticUpdates READ automaticUpdates NOTIFY generalChanged)
    Q_PROPERTY(bool automaticUpdatesAvailable READ automaticUpdatesAvailable CONSTANT)
    Q_PROPERTY(QString automaticUpdatesNote READ automaticUpdatesNote CONSTANT)
    Q_PROPERTY(QVariantList displays READ displays NOTIFY displaysChanged)
public:
    // Any of the three may be null: without a store nothing is read or written, without
    // login items or an updater their controls are shown disabled with a reason.
    SettingsModel(std::shared_ptr<platform::UserDefaults> store,
                  std::shared_ptr<platform::LoginItems> loginItems,
                  std::shared_ptr<Updater> updater, QObject* parent = nullptr);
    ~SettingsModel() override;

    int startupAction() const { return startupAction_; }
    bool launchAtLogin() const { return launchAtLogin_; }
    bool launchAtLoginAvailable() const { return static_cast<bool>(loginItems_); }
    QString launchAtLoginNote() const { return launchAtLoginNote_; }
    bool showOSD() const { return showOSD_; }
    bool automaticUpdates() const { return automaticUpdates_; }
    bool automaticUpdatesAvailable() const;
    QString automaticUpdatesNote() const;
    // One map per display, in list order: displayId, title (its own, without the friendly
    // name), ddcStatus ("verified",
    // "unverified", "softwareOnly"), preferenceKey and the stored friendlyName,
    // longerDelay and forceSoftware.
    QVariantList displays() const { return displays_; }

    // Reads the general values again. Launch at login shows the real registration, and
    // the stored key follows it when someone changed it behind the program's back.
    void reload();
    // Every display the system reports, DDC-capable or not. Rows are rebuilt only when a
    // display comes, goes, or changes its name, status or key: value refreshes leave a
    // field being typed in alone.
    void setDisplays(const std::vector<ExternalDisplay>& displays);

    Q_INVOKABLE void setStartupAction(int raw);
    Q_INVOKABLE void setLaunchAtLogin(bool enabled);
    Q_INVOKABLE void setShowOSD(bool show);
    Q_INVOKABLE void setAutomaticUpdates(bool enabled);
    Q_INVOKABLE void checkForUpdates();
    Q_INVOKABLE void setFriendlyName(const QString& preferenceKey, const QString& name);
    Q_INVOKABLE void setLongerDelay(const QString& preferenceKey, bool enabled);
    Q_INVOKABLE void setForceSoftwareBrightness(const QString& preferenceKey, bool enabled);

signals:
    void generalChanged();
    void displaysChanged();
    // A per-display option was written (a friendly name, the delay, software brightness):
    // whatever names or drives displays elsewhere reads it again.
    void displayOptionsEdited();

private:
    QVariantList rowsFor(const std::vector<ExternalDisplay>& displays) const;

    std::shared_ptr<platform::UserDefaults> store_;
    std::shared_ptr<platform::LoginItems> loginItems_;
    std::shared_ptr<Updater> updater_;
    int startupAction_ = 0;
    bool launchAtLogin_ = false;
    QString launchAtLoginNote_;
    bool showOSD_ = true;
    bool automaticUpdates_ = false;
    QVariantList displays_;
    // What the rows were built from: id, title, status and key of each display.
    std::vector<std::string> shape_;
};

} // namespace pw::ui
