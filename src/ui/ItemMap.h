#pragma once

#include <QString>

class QQuickItem;

namespace pw::ui {

// A testing aid (PANELWRIGHT_ITEM_MAP=FILE): where each named item of a shown view is on
// the screen, so a test can point at a control as a person would. One line per item
// with an objectName, tab-separated:
//   <path> <x> <y> <width> <height> [<text>]
// in global pixels; the path joins the names of named ancestors with '/', and a name
// used by several siblings' subtrees gets its occurrence: "section#1/brightnessSlider".
void writeItemMap(QQuickItem* root, const QString& file);

} // namespace pw::ui
