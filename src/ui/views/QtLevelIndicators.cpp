#include "ui/views/QtLevelIndicators.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>
#include <QSurfaceFormat>

#include <cmath>

Q_LOGGING_CATEGORY(lcIndicator, "panelwright.views.indicator")

namespace pw::ui {

namespace {

constexpr int kBottomInset = 100;

int toInt(double value) { return static_cast<int>(std::lround(value)); }

} // namespace

QPoint indicatorPosition(const std::optional<platform::Point>& origin,
                         const QRect& primaryGeometry, const QRect& primaryAvailable,
                         const QList<QRect>& screenGeometries, QPoint current) {
    if (!origin) return current;
    const QPoint converted(primaryGeometry.left() + toInt(origin->x),
                           primaryGeometry.top() + primaryGeometry.height() - toInt(origin->y) -
                               kIndicatorHeight);
    const QPoint centre = converted + QPoint(kIndicatorWidth / 2, kIndicatorHeight / 2);
    for (const QRect& screen : screenGeometries)
        if (screen.contains(centre)) return converted;
    if (primaryAvailable.isEmpty()) return current;
    return {primaryAvailable.center().x() + 1 - kIndicatorWidth / 2,
            primaryAvailable.top() + primaryAvailable.height() - kBottomInset - kIndicatorHeight};
}

QQuickWindow* QtIndicatorWindow::window() {
    if (made_) return window_;
    made_ = true;
    QQmlComponent component(&engine_);
    component.setData("import Panelwright.Views\nLevelIndicator {}\n", QUrl());
    QObject* object = component.create();
    window_ = qobject_cast<QQuickWindow*>(object);
    if (!window_) {
        qCWarning(lcIndicator) << "The level indicator window could not be made:"
                               << component.errorString();
        delete object;
        return nullptr;
    }
    // An alpha channel, so that a compositing desktop shows the panel's rounded corners.
    QSurfaceFormat format = window_->format();
    format.setAlphaBufferSize(8);
    window_->setFormat(format);
    window_->setFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                      Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput);
    return window_;
}

QtIndicatorWindow::~QtIndicatorWindow() { delete window_.data(); }

void QtIndicatorWindow::show(const platform::IndicatorContent& content) {
    QQuickWindow* shown = window();
    if (!shown) return;
    shown->setProperty("symbol", QString::fromStdString(content.symbol));
    shown->setProperty("level", static_cast<double>(content.level));
    shown->setProperty("fillWidth", static_cast<double>(content.level) * kTrackWidth);

    QList<QRect> geometries;
    for (QScreen* screen : QGuiApplication::screens()) geometries.append(screen->geometry());
    const QScreen* primary = QGuiApplication::primaryScreen();
    shown->setPosition(indicatorPosition(content.origin,
                                         primary ? primary->geometry() : QRect(),
                                         primary ? primary->availableGeometry() : QRect(),
                                         geometries, shown->position()));
    shown->show();
}

void QtIndicatorWindow::hide() {
    if (window_) window_->hide();
}

} // namespace pw::ui
