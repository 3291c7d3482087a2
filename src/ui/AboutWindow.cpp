#include "ui/AboutWindow.h"

#include "ui/FixedWindow.h"

namespace pw::ui {

AboutWindowController::AboutWindowController(QQmlEngine& engine, BuildInfo build)
    : engine_(engine), build_(std::move(build)) {}

AboutWindowController::~AboutWindowController() = default;

QString AboutWindowController::builtInCopyright() {
    return QStringLiteral("© 2026 The Panelwright developers");
}

void AboutWindowController::show() {
    if (!window_) {
        const QString copyright =
            build_.copyright.isEmpty() ? builtInCopyright() : build_.copyright;
        window_ = std::make_unique<FixedWindow>(
            engine_, QStringLiteral("AboutView"),
            QVariantMap{{QStringLiteral("appVersion"), build_.version},
                        {QStringLiteral("gitHash"), build_.build},
                        {QStringLiteral("copyright"), copyright}},
            QSize(340, 320), Qt::Dialog);
        window_->setTitle(QStringLiteral("About Panelwright"));
        window_->setObjectName(QStringLiteral("aboutWindow"));
    }
    window_->present();
}

} // namespace pw::ui
