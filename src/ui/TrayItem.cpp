#include "ui/TrayItem.h"

#include "ui/views/Symbols.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QPalette>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace pw::ui {

TrayItem::TrayItem(QObject* parent) : QObject(parent) {}

TrayItem::~TrayItem() {
    // Stop filtering first: a menu being destroyed still sends events, and comparing it
    // with a QPointer<QMenu> then casts a half-destroyed object.
    if (qApp) qApp->removeEventFilter(this);
    if (menu_) menu_->removeEventFilter(this);
    delete menu_.data();
}

bool TrayItem::hostAvailable() { return QSystemTrayIcon::isSystemTrayAvailable(); }

void TrayItem::build() {
    menu_ = new QMenu;
    menu_->addAction(QStringLiteral("About Panelwright"), this, &TrayItem::aboutChosen);
    menu_->addAction(QStringLiteral("Check for Updates\u2026"), this,
                     &TrayItem::checkForUpdatesChosen);
    menu_->addSeparator();
    QAction* quit = menu_->addAction(QStringLiteral("Quit Panelwright"), this,
                                     &TrayItem::quitChosen);
    // Live only while the menu is open: the menu is the only widget that takes it.
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setShortcutContext(Qt::WidgetShortcut);
    quit->setShortcutVisibleInContextMenu(true);
    menu_->installEventFilter(this);

    icon_ = new QSystemTrayIcon(this);
    updateIcon();
    connect(icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        switch (r) {
        case QSystemTrayIcon::Trigger: emit leftClicked(); break;
        case QSystemTrayIcon::Context: emit rightClicked(); break;
        default: break; // double and middle clicks do nothing
        }
    });
    // A panel that switches between light and dark changes the application's palette.
    qApp->installEventFilter(this);
    if (hostAvailable()) icon_->show();
    // After show: an XEmbed tray (a panel without StatusNotifierItem) gets its item widget
    // made by show(), and a tooltip set before then never reaches that widget.
    icon_->setToolTip(QStringLiteral("Panelwright"));
}

void TrayItem::updateIcon() {
    if (!icon_) return;
    const QColor ink = QApplication::palette().color(QPalette::WindowText);
    QIcon icon;
    for (int side : {16, 22, 24, 32, 48, 64})
        icon.addPixmap(QPixmap::fromImage(renderSymbol(u"display", QSize(side, side), ink)));
    icon_->setIcon(icon);
}

QRect TrayItem::geometry() const { return icon_ ? icon_->geometry() : QRect(); }

void TrayItem::showMenu() {
    if (!menu_) return;
    const QRect item = geometry();
    const QPoint at = item.isEmpty() ? QCursor::pos() : item.bottomLeft();
    menu_->popup(at);
    // Keyboard focus, so the shortcut works while the menu is open.
    menu_->activateWindow();
}

void TrayItem::hideMenu() {
    if (menu_) menu_->hide();
}

bool TrayItem::menuVisible() const { return menu_ && menu_->isVisible(); }

bool TrayItem::eventFilter(QObject* watched, QEvent* event) {
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) updateIcon();
    if (watched == menu_ && event->type() == QEvent::KeyPress) {
        // QMenu eats Ctrl+Q as a plain key otherwise; a menu open for the shortcut is the
        // point where Quit must work.
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Q && (key->modifiers() & Qt::ControlModifier)) {
            menu_->hide();
            emit quitChosen();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

} // namespace pw::ui
