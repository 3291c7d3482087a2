#include "ui/Screenshot.h"

#include "display/DisplayManager.h"
#include "ui/AboutWindow.h"
#include "ui/AppDelegate.h"
#include "ui/FixedWindow.h"
#include "ui/PopoverWindow.h"
#include "ui/QtStatusBar.h"
#include "ui/SettingsWindow.h"
#include "ui/views/QtLevelIndicators.h"
#include "ui/views/Views.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <QPalette>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickItemGrabResult>
#include <QQuickWindow>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace pw::ui {
namespace {

void finish(const QImage& image, const QString& file) {
    if (image.isNull() || !image.save(file, "PNG")) {
        std::fprintf(stderr, "panelwright: could not write the screenshot to %s\n",
                     qPrintable(file));
        QCoreApplication::exit(1);
        return;
    }
    std::printf("%s\n", qPrintable(file));
    QCoreApplication::exit(0);
}

// Grabs once the window has drawn a frame with its final size.
void grabWhenDrawn(QQuickWindow* window, const QString& file) {
    QTimer::singleShot(100, window, [window, file] { finish(window->grabWindow(), file); });
}

// PANELWRIGHT_SCREENSHOT_SCHEME=dark draws the pictures under a dark desktop palette, as a
// dark colour scheme hands it to the application.
void applyScheme() {
    if (qEnvironmentVariable("PANELWRIGHT_SCREENSHOT_SCHEME") != u"dark") return;
    QGuiApplication::setPalette(darkPalette());
}

} // namespace

bool isScreenshotKind(const QString& kind) {
    return kind == u"popover" || kind == u"indicator" || kind == u"settings" ||
           kind == u"settings-displays" || kind == u"about";
}

void takeScreenshot(const ScreenshotSources& sources, QQmlEngine& engine, const QString& kind,
                    const QString& file) {
    applyScheme();
    AppDelegate& app = sources.app;
    if (kind == u"about") {
        sources.about.show();
        return grabWhenDrawn(sources.about.window(), file);
    }
    if (kind == u"settings" || kind == u"settings-displays") {
        sources.settings.show();
        sources.settings.selectTab(kind == u"settings" ? 0 : 1);
        return grabWhenDrawn(sources.settings.window(), file);
    }
    if (kind == u"indicator") {
        auto indicator = std::make_shared<QtIndicatorWindow>(engine);
        QQuickWindow* window = indicator->window();
        if (!window) return finish({}, file);
        indicator->show({"sun.max.fill", 0.625f, std::nullopt});
        // The indicator lives until the grab is done.
        QTimer::singleShot(100, window, [indicator, window, file] {
            finish(window->grabWindow(), file);
        });
        return;
    }
    // The popover as a person sees it on opening: every value read fresh first.
    QPointer<PopoverWindow> window = &app.statusBar().popover();
    app.displayManager()->refreshDisplays([window, file] {
        if (!window) return;
        // The refreshed list reaches the view model on the main queue after this.
        QTimer::singleShot(300, window, [window, file] {
            window->popUp({});
            // The popover's item rather than its window: an item's grab keeps the alpha
            // channel, so the rounded corners and the shadow lie on whatever page shows
            // the picture (a window's grab fills what is transparent).
            QTimer::singleShot(100, window, [window, file] {
                QQuickItem* content = window ? window->content() : nullptr;
                if (!content) return finish({}, file);
                const auto grab =
                    content->grabToImage(window->size() * window->effectiveDevicePixelRatio());
                if (!grab) return finish({}, file);
                QObject::connect(grab.data(), &QQuickItemGrabResult::ready, window,
                                 [grab, file] { finish(grab->image(), file); });
            });
        });
    });
}

} // namespace pw::ui
