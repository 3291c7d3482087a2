#include "ui/Updater.h"

#include <QMessageBox>

namespace pw::ui {

void PackageManagerUpdater::checkForUpdates() {
    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("Panelwright"),
                                QStringLiteral("Panelwright is updated with the rest of your "
                                               "system, by its package manager."),
                                QMessageBox::Ok);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

} // namespace pw::ui
