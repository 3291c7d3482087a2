#include "ui/PopoverWindow.h"

#include "ui/PopoverPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QScreen>

#include <cmath>
#include <cstdio>

namespace pw::ui {
namespace {
// A click on the tray item takes the focus first (closing the popover) and then arrives
// as the item's activation; within this time it counts as the click that closed it.
constexpr qint64 kToggleGraceMs = 400;
} // namespace

PopoverWindow::PopoverWindow(QQmlEngine& engine, const QByteArray& source, QObject* model) {
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setTitle(QStringLiteral("Panelwright"));
    setColor(QColor(QStringLiteral("#f6f5f4")));
    setWidth(kWidth);

    QQmlComponent component(&engine);
    component.setData(source, QUrl(QStringLiteral("qrc:/panelwright/shell/Popover.qml")));
    // Made only from a ready component: Qt 6.4 crashes making one that failed to load.
    QObject* root = component.isReady()
                        ? component.createWithInitialProperties(
                              {{QStringLiteral("model"), QVariant::fromValue(model)}})
                        : nullptr;
    content_ = qobject_cast<QQuickItem*>(root);
    if (!content_) {
        std::fprintf(stderr, "panelwright: the popover's view could not be loaded: %s\n",
                     qPrintable(component.errorString()));
        delete root;
        setHeight(120);
        return;
    }
    content_->setParentItem(contentItem());
    content_->setWidth(kWidth);
    connect(content_, &QQuickItem::implicitHeightChanged, this, &PopoverWindow::fitToContent);
    fitToContent();
    connect(this, &QQuickWindow::frameSwapped, this, [this] {
        if (!waitingForFrame_) return;
        waitingForFrame_ = false;
        emit shownFrame();
    });
}

PopoverWindow::~PopoverWindow() { delete content_; }

void PopoverWindow::fitToContent() {
    if (!content_) return;
    const int h = std::max(1, static_cast<int>(std::ceil(content_->implicitHeight())));
    content_->setHeight(h);
    setMinimumSize({kWidth, h});
    setMaximumSize({kWidth, h});
    resize(kWidth, h);
    // Displays that arrive while it is open make it taller: keep it on the screen.
    if (isVisible()) place();
}

void PopoverWindow::place() {
    const QPoint pointer = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(trayGeometry_.isEmpty() ? pointer
                                                                         : trayGeometry_.center());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen) return;
    setScreen(screen);
    setPosition(popoverPosition(trayGeometry_, size(), screen->geometry(),
                                screen->availableGeometry(), pointer));
}

void PopoverWindow::popUp(const QRect& trayGeometry) {
    trayGeometry_ = trayGeometry;
    place();
    closedByFocusLoss_.invalidate();
    waitingForFrame_ = true;
    show();
    raise();
    requestActivate();
}

void PopoverWindow::closePopover() {
    if (!isVisible()) return;
    hide();
    emit closed();
}

bool PopoverWindow::isShownForToggle() const {
    if (isVisible()) return true;
    return closedByFocusLoss_.isValid() && closedByFocusLoss_.elapsed() < kToggleGraceMs;
}

void PopoverWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        closePopover();
        event->accept();
        return;
    }
    QQuickWindow::keyPressEvent(event);
}

bool PopoverWindow::event(QEvent* event) {
    // Losing focus is how a click anywhere else reaches us (another window, the desktop,
    // the panel); it is also the route for the second click on the tray item.
    if (event->type() == QEvent::FocusOut && isVisible()) {
        closedByFocusLoss_.start();
        const bool handled = QQuickWindow::event(event);
        emit deactivated();
        return handled;
    }
    return QQuickWindow::event(event);
}

} // namespace pw::ui
