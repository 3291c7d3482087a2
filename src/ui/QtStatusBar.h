#pragma once

#include "viewmodel/StatusItemHost.h"

#include <QObject>

#include <functional>
#include <memory>

class QQmlEngine;

namespace pw {
class Core;
class PopoverViewModel;
class StatusBarController;
} // namespace pw

namespace pw::ui {

class PopoverModel;
class PopoverWindow;
class TrayItem;
class Updater;

// The program's presence in the panel: the tray item, its context menu and the popover,
// driven by the core's click rules (StatusBarController) through the StatusItemHost seam.
// Creating it makes the popover's view model and nothing visible; `setup` builds the rest.
class QtStatusBar final : public QObject, public StatusItemHost {
    Q_OBJECT
public:
    // Over a new view model of `core`'s managers.
    QtStatusBar(QQmlEngine& engine, const Core& core, QObject* parent = nullptr);
    QtStatusBar(QQmlEngine& engine, std::shared_ptr<PopoverViewModel> viewModel,
                QObject* parent = nullptr);
    ~QtStatusBar() override;

    void setup(std::shared_ptr<Updater> updater);
    // Whether the window system composites, so the popover may draw rounded corners and
    // a shadow. Takes effect when the popover is made; false (a square panel) until told.
    void setWindowSystemComposites(bool composites) { composites_ = composites; }

    // Whether the item is in a tray. Without a tray host the popover is the only way in.
    bool trayAvailable() const;
    // Opens the popover as a left click on the item would (another start of the program,
    // no tray host, tests). Does nothing while it is open.
    void openPopover();

    // StatusItemHost
    void showPopover() override;
    void closePopover() override;
    bool isPopoverShown() const override;
    void showContextMenu() override;
    bool installOutsideClickWatcher(std::function<void()> onOutsideClick) override;
    void removeOutsideClickWatcher() override;

    PopoverViewModel& viewModel() const { return *viewModel_; }
    StatusBarController& controller() const { return *controller_; }
    PopoverModel* model() const { return model_; }
    // The popover is made on its first opening: a person who never opens it does not
    // pay for its views (about 20 MiB). Null until then.
    PopoverWindow* window() const { return window_.get(); }
    // The popover, made now if it was not yet.
    PopoverWindow& popover();
    TrayItem* tray() const { return tray_; }
    bool hasOutsideClickWatcher() const { return static_cast<bool>(watcher_); }

signals:
    void aboutRequested();
    void settingsRequested();
    void quitRequested();
    // The popover was just made (on its first opening).
    void popoverMade(PopoverWindow* window);

private:
    QQmlEngine& engine_;
    std::shared_ptr<PopoverViewModel> viewModel_;
    std::unique_ptr<StatusBarController> controller_;
    PopoverModel* model_ = nullptr;
    TrayItem* tray_ = nullptr;
    std::unique_ptr<PopoverWindow> window_;
    std::shared_ptr<Updater> updater_;
    std::function<void()> watcher_;
    bool composites_ = false;
};

} // namespace pw::ui
