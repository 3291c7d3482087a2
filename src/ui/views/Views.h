#pragma once

#include <QPalette>

class QQmlEngine;

namespace pw::ui {

// Icon lookup for the symbols of the views. Call once, after QGuiApplication exists: a
// session without a desktop (offscreen, a bare X server) has no icon theme and only
// ":/icons" on the search path, so every themed lookup would fail.
void setUpIcons();

// The palette a dark desktop colour scheme hands the application: for pictures and view
// tests of the dark look.
QPalette darkPalette();

// Everything the views need in an engine: the Panelwright.Views module and the
// image://symbol provider. Call once per engine, before loading any view.
void installViews(QQmlEngine& engine);

} // namespace pw::ui
