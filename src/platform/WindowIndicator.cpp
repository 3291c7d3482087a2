#include "platform/WindowIndicator.h"

#include <algorithm>

namespace pw::platform {

namespace {

// The window is 200 points wide and sits 100 points above the bottom of the usable area.
constexpr double kHalfWindowWidth = 100;
constexpr double kBottomInset = 100;

std::string_view symbolOf(IndicatorKind kind) {
    switch (kind) {
    case IndicatorKind::brightness: return WindowIndicator::kBrightnessSymbol;
    case IndicatorKind::volume: return WindowIndicator::kVolumeSymbol;
    case IndicatorKind::mute: return WindowIndicator::kMuteSymbol;
    }
    return WindowIndicator::kBrightnessSymbol;
}

// The bar cannot be emptier than empty or fuller than full; a level that is not a number
// shows as empty.
float barLevel(float level) {
    if (!(level > 0)) return 0;
    return std::min(level, 1.0f);
}

} // namespace

std::shared_ptr<WindowIndicator> WindowIndicator::create(std::shared_ptr<MainQueue> mainQueue,
                                                         std::shared_ptr<Screens> screens,
                                                         std::shared_ptr<IndicatorWindow> window) {
    if (!mainQueue || !window) return nullptr;
    return std::shared_ptr<WindowIndicator>(
        new WindowIndicator(std::move(mainQueue), std::move(screens), std::move(window)));
}

WindowIndicator::WindowIndicator(std::shared_ptr<MainQueue> mainQueue,
                                 std::shared_ptr<Screens> screens,
                                 std::shared_ptr<IndicatorWindow> window)
    : mainQueue_(std::move(mainQueue)), screens_(std::move(screens)), window_(std::move(window)) {}

void WindowIndicator::show(IndicatorKind kind, float level, DisplayID display) {
    // Always through the main queue, even from the main thread, so that shows from any
    // thread are applied in the order they were asked for.
    mainQueue_->post([weak = weak_from_this(), kind, level, display] {
        if (auto self = weak.lock()) self->present(kind, level, display);
    });
}

void WindowIndicator::present(IndicatorKind kind, float level, DisplayID display) {
    IndicatorContent content;
    content.symbol = std::string(symbolOf(kind));
    content.level = barLevel(level);
    content.origin = origin(display);
    window_->show(content);

    // A hide still pending from an earlier show no longer applies: each show restarts the
    // period.
    const std::uint64_t generation = ++generations_;
    pendingHide_ = generation;
    mainQueue_->postAfter(kHideDelay, [weak = weak_from_this(), generation] {
        auto self = weak.lock();
        if (!self || self->pendingHide_ != generation) return;
        self->pendingHide_ = 0;
        self->window_->hide();
    });
}

std::optional<Point> WindowIndicator::origin(DisplayID display) const {
    if (!screens_) return std::nullopt;
    std::optional<Screen> screen;
    for (auto& candidate : screens_->screens()) {
        if (candidate.number == display) {
            screen = std::move(candidate);
            break;
        }
    }
    if (!screen) screen = screens_->mainScreen();
    if (!screen) return std::nullopt;
    const Rect visible = screen->visibleFrame();
    return Point{visible.midX() - kHalfWindowWidth, visible.y + kBottomInset};
}

} // namespace pw::platform
