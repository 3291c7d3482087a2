#include "ui/Updater.h"

#include <QMessageBox>

namespace pw::ui {

PackageManagerUpdater::PackageManagerUpdater(QString version, QString build)
    : version_(std::move(version)), build_(std::move(build)) {}

PackageManagerUpdater::~PackageManagerUpdater() { delete dialog_; }

QString PackageManagerUpdater::automaticChecksNote() const {
    return QStringLiteral("Updates come with the package you installed Panelwright from.");
}

QString PackageManagerUpdater::message() const {
    // No-break spaces: the dialog wraps its text, and "(build" alone at a line's end reads
    // as a fault.
    return QStringLiteral("You have Panelwright\u00a0%1 (build\u00a0%2).\n\n"
                          "Panelwright does not download updates itself. New versions come "
                          "from the package you installed it from: your system's software "
                          "updater or package manager installs them with the rest of your "
                          "system.")
        .arg(version_, build_);
}

void PackageManagerUpdater::checkForUpdates() {
    if (!dialog_) {
        dialog_ = new QMessageBox(QMessageBox::Information, QStringLiteral("Check for Updates"),
                                  QStringLiteral("Updates come from your package"),
                                  QMessageBox::Ok);
        dialog_->setInformativeText(message());
        dialog_->setObjectName(QStringLiteral("updatesDialog"));
        dialog_->setAttribute(Qt::WA_DeleteOnClose);
    }
    dialog_->show();
    dialog_->raise();
    dialog_->activateWindow();
}

} // namespace pw::ui
