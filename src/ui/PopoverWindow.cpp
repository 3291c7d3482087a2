#include "ui/PopoverWindow.h"

#include "ui/PopoverPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QScreen>
#include <QSurfaceFormat>

#include <cmath>
#include <cstdio>

namespace pw::ui {
namespace {
// A click on the tray item takes the focus first (closing the popover) and then arrives
// as the item's activation; within this time it counts as the click that closed it.
constexpr qint64 kToggleGraceMs = 400;
} // namespace

PopoverWindow::PopoverWindow(QQmlEngine& engine, const QByteArray& source, QObject* model,
                             bool composited) {
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setTitle(QStringLiteral("Panelwright"));
    if (composited) {
        // An alpha channel, asked for before the window exists, for the rounded corners
        // and the shadow.
        QSurfaceFormat surface = format();
        surface.setAlphaBufferSize(8);
        setFormat(surface);
        setColor(Qt::transparent);
    } else {
        setColor(QColor(QStringLiteral("#f6f5f4")));
    }
    setWidth(kWidth);

    QQmlComponent component(&engine);
    component.setData(source, QUrl(QStringLiteral("qrc:/panelwright/shell/Popover.qml")));
    // Made only from a ready component: Qt 6.4 crashes making one that failed to load.
    QObject* root = component.isReady()
                        ? component.createWithInitialProperties(
                              {{QStringLiteral("model"), QVariant::fromValue(model)},
                               {QStringLiteral("composited"), composited}})
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
    connect(content_, &QQuickItem::implicitWidthChanged, this, &PopoverWindow::fitToContent);
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
    const int w = std::max(kWidth, static_cast<int>(std::ceil(content_->implicitWidth())));
    const int h = std::max(1, static_cast<int>(std::ceil(content_->implicitHeight())));
    content_->setSize({static_cast<qreal>(w), static_cast<qreal>(h)});
    setMinimumSize({w, h});
    setMaximumSize({w, h});
    resize(w, h);
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
    // The panel goes where a popover without a shadow would; the margin lies around it.
    const int margin = shadowMargin();
    setPosition(popoverPosition(trayGeometry_, size().shrunkBy({margin, margin, margin, margin}),
                                screen->geometry(), screen->availableGeometry(), pointer) -
                QPoint(margin, margin));
}

int PopoverWindow::shadowMargin() const {
    return content_ ? content_->property("shadowMargin").toInt() : 0;
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

void PopoverWindow::mousePressEvent(QMouseEvent* event) {
    // The shadow's margin is part of the window but looks like whatever lies beneath it
    // (the tray item, another window): a press there is meant for outside the popover.
    const int margin = shadowMargin();
    const QRect panel(QPoint(margin, margin), size().shrunkBy({margin, margin, margin, margin}));
    if (margin > 0 && !panel.contains(event->position().toPoint())) {
        event->accept();
        emit deactivated();
        return;
    }
    QQuickWindow::mousePressEvent(event);
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
