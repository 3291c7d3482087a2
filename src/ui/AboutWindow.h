#pragma once

#include "ui/BuildInfo.h"

#include <memory>

class QQmlEngine;

namespace pw::ui {

class FixedWindow;

// The About panel: one per process, 340 × 320, made on the first show and kept after the
// user closes it; every later show brings the same panel to the front. Its texts are read
// once, when it is made.
class AboutWindowController {
public:
    AboutWindowController(QQmlEngine& engine, BuildInfo build);
    ~AboutWindowController();

    void show();

    // The panel once shown, else null.
    FixedWindow* window() const { return window_.get(); }

    // Shown when the build carries no copyright of its own.
    static QString builtInCopyright();

private:
    QQmlEngine& engine_;
    BuildInfo build_;
    std::unique_ptr<FixedWindow> window_;
};

} // namespace pw::ui
