#pragma once

#include "platform/LevelIndicator.h"

#include <QList>
#include <QPoint>
#include <QPointer>
#include <QRect>

#include <memory>
#include <optional>

class QQmlEngine;
class QQuickWindow;

namespace pw::ui {

inline constexpr int kIndicatorWidth = 200;
inline constexpr int kIndicatorHeight = 70;

// Where the indicator's top-left corner goes, in Qt's global coordinates (y down).
// `origin` is the bottom-left corner in the core's global coordinates, whose y grows
// upwards from the bottom of the primary screen. When the converted window would not lie
// on any screen (screens moved since the core looked), the window is centred on the
// primary screen, 100 above the bottom of its usable area. Without an origin it stays at
// `current`.
QPoint indicatorPosition(const std::optional<platform::Point>& origin,
                         const QRect& primaryGeometry, const QRect& primaryAvailable,
                         const QList<QRect>& screenGeometries, QPoint current);

// Our own level indicator as a Qt Quick window (LevelIndicator.qml): frameless, on top,
// never focused, transparent for the pointer, made on first use. The machine's indicator
// shows and hides it on the GUI thread.
class QtIndicatorWindow final : public platform::IndicatorWindow {
public:
    // The bar's track, in points: the fill is level x this.
    static constexpr double kTrackWidth = 132;

    // `engine` must have had installViews and must outlive the window.
    explicit QtIndicatorWindow(QQmlEngine& engine) : engine_(engine) {}
    ~QtIndicatorWindow() override;

    void show(const platform::IndicatorContent& content) override;
    void hide() override;

    // The Qt window (made now if it was not), for tests and pictures; null when the QML
    // could not be loaded.
    QQuickWindow* window();

private:
    QQmlEngine& engine_;
    bool made_ = false;
    QPointer<QQuickWindow> window_;
};

} // namespace pw::ui
