#pragma once

#include <QString>

class QQmlComponent;
class QQmlEngine;

namespace pw::ui {

// What to tell a person when a view cannot be loaded, in one line: the QML module that is
// missing and the Debian package that carries it, or else Qt's first error. Empty when the
// component is ready.
QString viewLoadError(const QQmlComponent& component);

// Compiles every view of Panelwright.Views (creating nothing) and returns the first
// failure's line, or empty when all of them load. Qt loads a view's modules only when the
// view is first made, so a machine without one would otherwise start and fail later.
QString viewsLoadError(QQmlEngine& engine);

} // namespace pw::ui
