#pragma once

#include "platform/OSD.h"

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

// The fallback level indicator as a Qt Quick window (LevelIndicator.qml): frameless, on
// top, never focused, transparent for the pointer. Shown and hidden on the GUI thread.
class QtLevelIndicatorWindow final : public platform::LevelIndicatorWindow {
public:
    explicit QtLevelIndicatorWindow(QQmlEngine& engine);
    ~QtLevelIndicatorWindow() override;

    void show(const platform::IndicatorContent& content) override;
    void hide() override;

    // The Qt window, for tests and pictures; null when the QML could not be loaded.
    QQuickWindow* window() const { return window_; }

private:
    QPointer<QQuickWindow> window_;
};

// Makes the fallback indicator windows in the given engine (which must have had
// installViews). The engine must outlive the windows.
class QtLevelIndicators final : public platform::LevelIndicators {
public:
    explicit QtLevelIndicators(QQmlEngine& engine) : engine_(engine) {}
    std::shared_ptr<platform::LevelIndicatorWindow> createWindow() override;

private:
    QQmlEngine& engine_;
};

} // namespace pw::ui
