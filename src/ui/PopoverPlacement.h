#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

namespace pw::ui {

// Gap between the popover and the panel or the tray item.
inline constexpr int kPopoverMargin = 6;

// Where the popover's top-left corner goes.
// - With the tray item's geometry: below an item in a top panel (above one in a bottom
//   panel, beside one in a side panel), centred on the item, kept inside the usable area.
// - Without it (StatusNotifierItem hosts never say where the item is): in the corner of
//   the pointer's screen nearest the panel, on the pointer's side. The panel is the edge
//   where the usable area stops short of the screen; with no panel found, the edge
//   nearest the pointer.
QPoint popoverPosition(const QRect& trayGeometry, const QSize& popoverSize, const QRect& screen,
                       const QRect& available, const QPoint& pointer);

} // namespace pw::ui
