#pragma once

#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QRect>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace pw::ui {

// The tray item and its context menu, as Qt offers them. A left click and a right click
// arrive as two signals and nothing else happens by itself: the menu is shown only when
// asked (`showMenu`), never attached to the item, so a left click can never open it.
class TrayItem : public QObject {
    Q_OBJECT
public:
    explicit TrayItem(QObject* parent = nullptr);
    ~TrayItem() override;

    // Whether the desktop has a tray host to show the item in. Qt looks once per process;
    // without a host `QSystemTrayIcon::show` still claims success, so ask this first.
    static bool hostAvailable();

    // Builds the item (monochrome display symbol drawn in the panel's text colour,
    // tooltip "Panelwright") and the menu, and shows the item when a host is there.
    void build();

    // Where the host shows the item; empty when it does not say (StatusNotifierItem).
    QRect geometry() const;
    // Opens the context menu at the item (or at the pointer) and returns at once.
    void showMenu();
    void hideMenu();
    bool menuVisible() const;

    QMenu* menu() const { return menu_; }
    QSystemTrayIcon* icon() const { return icon_; }

signals:
    void leftClicked();
    void rightClicked();
    void aboutChosen();
    void checkForUpdatesChosen();
    void quitChosen();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void updateIcon();

    QSystemTrayIcon* icon_ = nullptr;
    QPointer<QMenu> menu_;
};

} // namespace pw::ui
