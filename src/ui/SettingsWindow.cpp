#include "ui/SettingsWindow.h"

#include "display/DisplayManager.h"
#include "ui/FixedWindow.h"
#include "ui/SettingsModel.h"

#include <QPointer>
#include <QQmlEngine>

namespace pw::ui {

SettingsWindowController::SettingsWindowController(QQmlEngine& engine,
                                                   std::shared_ptr<SettingsModel> model,
                                                   std::shared_ptr<DisplayManager> displays)
    : engine_(engine), model_(std::move(model)), displays_(std::move(displays)) {
    if (!displays_) return;
    model_->setDisplays(displays_->displays());
    // Observers run on the main queue, where the model lives.
    subscription_ = displays_->subscribe(
        [model = std::weak_ptr<SettingsModel>(model_)](const std::vector<ExternalDisplay>& list) {
            if (auto alive = model.lock()) alive->setDisplays(list);
        });
}

SettingsWindowController::~SettingsWindowController() {
    if (displays_) displays_->unsubscribe(subscription_);
}

void SettingsWindowController::show() {
    model_->reload();
    if (!window_) {
        window_ = std::make_unique<FixedWindow>(
            engine_, QStringLiteral("SettingsView"),
            QVariantMap{{QStringLiteral("settings"), QVariant::fromValue<QObject*>(model_.get())}},
            QSize(480, 400), Qt::Window | Qt::WindowMinimizeButtonHint);
        window_->setTitle(QStringLiteral("Panelwright Settings"));
        window_->setObjectName(QStringLiteral("settingsWindow"));
    }
    window_->present();
}

void SettingsWindowController::selectTab(int tab) {
    if (window_ && window_->content()) window_->content()->setProperty("selectedTab", tab);
}

int SettingsWindowController::currentTab() const {
    if (!window_ || !window_->content()) return 0;
    return window_->content()->property("selectedTab").toInt();
}

} // namespace pw::ui
