#pragma once

#include <QString>

class QQmlEngine;

namespace pw::ui {

class AppDelegate;

// `--screenshot popover|indicator FILE`: renders one view of the running app (offscreen,
// no display needed) to a PNG and quits the event loop with 0, or 1 when the picture
// could not be made (the reason on stderr).
bool isScreenshotKind(const QString& kind);
void takeScreenshot(AppDelegate& app, QQmlEngine& engine, const QString& kind,
                    const QString& file);

} // namespace pw::ui
