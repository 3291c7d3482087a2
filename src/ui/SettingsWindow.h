#pragma once

#include <cstdint>
#include <memory>

class QQmlEngine;

namespace pw {
class DisplayManager;
}

namespace pw::ui {

class FixedWindow;
class SettingsModel;

// The settings window: one per process, 480 × 400, not resizable. Made on the first show
// and kept after the user closes it, so a later show brings back the same window with the
// tab and the fields as they were. Each show reads the general values again.
class SettingsWindowController {
public:
    // `displays` may be null: the Displays tab then shows its empty state.
    SettingsWindowController(QQmlEngine& engine, std::shared_ptr<SettingsModel> model,
                             std::shared_ptr<DisplayManager> displays);
    ~SettingsWindowController();

    void show();
    // 0 General, 1 Displays. For the screenshots; the user picks it with the tabs.
    void selectTab(int tab);
    int currentTab() const;

    FixedWindow* window() const { return window_.get(); }
    SettingsModel& model() const { return *model_; }

private:
    QQmlEngine& engine_;
    std::shared_ptr<SettingsModel> model_;
    std::shared_ptr<DisplayManager> displays_;
    std::uint64_t subscription_ = 0;
    std::unique_ptr<FixedWindow> window_;
};

} // namespace pw::ui
