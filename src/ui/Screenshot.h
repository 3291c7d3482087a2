#pragma once

#include <QString>

class QQmlEngine;

namespace pw::ui {

class AboutWindowController;
class AppDelegate;
class SettingsWindowController;

// What a picture can be taken of.
struct ScreenshotSources {
    AppDelegate& app;
    SettingsWindowController& settings;
    AboutWindowController& about;
};

// `--screenshot popover|indicator|settings|settings-displays|about FILE`: renders one view of the running app (offscreen,
// no display needed) to a PNG and quits the event loop with 0, or 1 when the picture
// could not be made (the reason on stderr).
bool isScreenshotKind(const QString& kind);
void takeScreenshot(const ScreenshotSources& sources, QQmlEngine& engine, const QString& kind,
                    const QString& file);

} // namespace pw::ui
