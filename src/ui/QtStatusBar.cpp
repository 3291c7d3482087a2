#include "ui/QtStatusBar.h"

#include "app/Core.h"
#include "ui/PopoverModel.h"
#include "ui/PopoverWindow.h"
#include "ui/TrayItem.h"
#include "ui/Updater.h"
#include "viewmodel/PopoverViewModel.h"
#include "viewmodel/StatusBarController.h"

namespace pw::ui {
namespace {
constexpr char kPopoverSource[] = "import Panelwright.Views\nPopoverContent {}\n";
}

QtStatusBar::QtStatusBar(QQmlEngine& engine, const Core& core, QObject* parent)
    : QtStatusBar(engine,
                  std::make_shared<PopoverViewModel>(core.displays(), core.ddc(), core.gamma(),
                                                     core.machine().mainQueue),
                  parent) {}

QtStatusBar::QtStatusBar(QQmlEngine& engine, std::shared_ptr<PopoverViewModel> viewModel,
                         QObject* parent)
    : QObject(parent), engine_(engine), viewModel_(std::move(viewModel)),
      controller_(std::make_unique<StatusBarController>(*this, *viewModel_)) {}

QtStatusBar::~QtStatusBar() {
    // Children go before the view model they watch (QObject would delete them after it).
    controller_.reset(); // removes its watcher through us while we still exist
    window_.reset();
    delete model_;
    delete tray_;
}

void QtStatusBar::setup(std::shared_ptr<Updater> updater) {
    updater_ = std::move(updater);
    model_ = new PopoverModel(*viewModel_, this);
    connect(model_, &PopoverModel::aboutRequested, this, &QtStatusBar::aboutRequested);
    connect(model_, &PopoverModel::settingsRequested, this, &QtStatusBar::settingsRequested);
    connect(model_, &PopoverModel::quitRequested, this, &QtStatusBar::quitRequested);

    tray_ = new TrayItem(this);
    tray_->build();
    connect(tray_, &TrayItem::leftClicked, this, [this] { controller_->leftClick(); });
    connect(tray_, &TrayItem::rightClicked, this, [this] { controller_->rightClick(); });
    connect(tray_, &TrayItem::aboutChosen, this, &QtStatusBar::aboutRequested);
    connect(tray_, &TrayItem::quitChosen, this, &QtStatusBar::quitRequested);
    connect(tray_, &TrayItem::checkForUpdatesChosen, this, [this] {
        if (updater_) updater_->checkForUpdates();
    });

}

PopoverWindow& QtStatusBar::popover() {
    if (window_) return *window_;
    window_ = std::make_unique<PopoverWindow>(engine_, QByteArray(kPopoverSource), model_,
                                              composites_);
    connect(window_.get(), &PopoverWindow::closed, this, [this] { controller_->popoverDidClose(); });
    connect(window_.get(), &PopoverWindow::deactivated, this, [this] {
        // A click elsewhere took the focus. With the watcher the click rules close the
        // popover; without one (never installed) it closes by itself.
        if (watcher_) watcher_();
        else window_->closePopover();
    });
    emit popoverMade(window_.get());
    return *window_;
}

bool QtStatusBar::trayAvailable() const { return TrayItem::hostAvailable(); }

void QtStatusBar::openPopover() {
    if (!model_ || (window_ && window_->isVisible())) return;
    if (window_) window_->forgetFocusLoss();
    controller_->leftClick();
}

void QtStatusBar::showPopover() {
    if (model_) popover().popUp(tray_ ? tray_->geometry() : QRect());
}

void QtStatusBar::closePopover() {
    if (window_) window_->closePopover();
}

bool QtStatusBar::isPopoverShown() const { return window_ && window_->isShownForToggle(); }

void QtStatusBar::showContextMenu() {
    if (tray_) tray_->showMenu();
}

bool QtStatusBar::installOutsideClickWatcher(std::function<void()> onOutsideClick) {
    watcher_ = std::move(onOutsideClick);
    return true;
}

void QtStatusBar::removeOutsideClickWatcher() { watcher_ = nullptr; }

} // namespace pw::ui
