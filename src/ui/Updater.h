#pragma once

#include <QPointer>
#include <QString>

#include <QMessageBox>

namespace pw::ui {

// What the update controls (the "Check for Updates…" item and button, the automatic-check
// toggle) talk to. A build that can update itself puts its updater behind this; a build
// that is updated by the system's package manager says exactly that and checks nothing.
class Updater {
public:
    virtual ~Updater() = default;

    // Whether the program can look for new versions by itself, on a schedule.
    virtual bool supportsAutomaticChecks() const = 0;
    virtual bool automaticallyChecksForUpdates() const = 0;
    virtual void setAutomaticallyChecksForUpdates(bool enabled) = 0;
    // One line for the settings window: why there are no automatic checks. Empty when
    // they are supported.
    virtual QString automaticChecksNote() const = 0;

    virtual void checkForUpdates() = 0;
};

// Updates come from the package the user installed: "Check for Updates…" opens a small
// dialog with this version and build and where new versions come from, nothing more.
class PackageManagerUpdater final : public Updater {
public:
    PackageManagerUpdater(QString version, QString build);
    ~PackageManagerUpdater() override;

    bool supportsAutomaticChecks() const override { return false; }
    bool automaticallyChecksForUpdates() const override { return false; }
    void setAutomaticallyChecksForUpdates(bool) override {}
    QString automaticChecksNote() const override;

    // Opens the dialog, or brings the open one to the front.
    void checkForUpdates() override;

    // The dialog's text.
    QString message() const;
    QMessageBox* dialog() const { return dialog_; }

private:
    QString version_;
    QString build_;
    QPointer<QMessageBox> dialog_;
};

} // namespace pw::ui
