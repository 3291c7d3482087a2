#include "ui/PopoverPlacement.h"

#include <algorithm>

namespace pw::ui {
namespace {

enum class Edge { top, bottom, left, right };

// The edge that holds the panel: where the usable area is cut shortest of the screen.
Edge panelEdge(const QRect& screen, const QRect& available, const QPoint& pointer) {
    const int top = available.top() - screen.top();
    const int bottom = screen.bottom() - available.bottom();
    const int left = available.left() - screen.left();
    const int right = screen.right() - available.right();
    const int widest = std::max({top, bottom, left, right});
    if (widest > 0) {
        if (widest == top) return Edge::top;
        if (widest == bottom) return Edge::bottom;
        if (widest == left) return Edge::left;
        return Edge::right;
    }
    return pointer.y() < screen.center().y() ? Edge::top : Edge::bottom;
}

int clampInto(int value, int low, int high) { return std::max(low, std::min(value, high)); }

QPoint keepInside(QPoint p, const QSize& size, const QRect& area) {
    const int m = kPopoverMargin;
    p.setX(clampInto(p.x(), area.left() + m, area.right() + 1 - m - size.width()));
    p.setY(clampInto(p.y(), area.top() + m, area.bottom() + 1 - m - size.height()));
    return p;
}

} // namespace

QPoint popoverPosition(const QRect& tray, const QSize& size, const QRect& screen,
                       const QRect& available, const QPoint& pointer) {
    const int m = kPopoverMargin;
    if (tray.isValid() && !tray.isEmpty()) {
        const Edge edge = panelEdge(screen, available, tray.center());
        QPoint p;
        switch (edge) {
        case Edge::top: p = {tray.center().x() - size.width() / 2, tray.bottom() + 1 + m}; break;
        case Edge::bottom: p = {tray.center().x() - size.width() / 2, tray.top() - m - size.height()}; break;
        case Edge::left: p = {tray.right() + 1 + m, tray.center().y() - size.height() / 2}; break;
        case Edge::right: p = {tray.left() - m - size.width(), tray.center().y() - size.height() / 2}; break;
        }
        return keepInside(p, size, available);
    }
    const Edge edge = panelEdge(screen, available, pointer);
    const bool pointerLeft = pointer.x() < available.center().x();
    const bool pointerHigh = pointer.y() < available.center().y();
    const bool atTop = edge == Edge::top || ((edge == Edge::left || edge == Edge::right) && pointerHigh);
    const bool atLeft = edge == Edge::left || ((edge == Edge::top || edge == Edge::bottom) && pointerLeft);
    const QPoint p(atLeft ? available.left() + m : available.right() + 1 - m - size.width(),
                   atTop ? available.top() + m : available.bottom() + 1 - m - size.height());
    return keepInside(p, size, available);
}

} // namespace pw::ui
