#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>

class QQmlEngine;

namespace pw::ui {

// The popover: a frameless Qt Quick window as large as its content (a panel 360 wide,
// with a shadow margin around it where the window system composites), placed with the
// panel against the tray item. Escape or `closePopover` closes it; losing the focus (a click
// elsewhere) is reported as `deactivated` for the click rules to act on. Every close
// ends in `closed`. Nothing watches the pointer while it is closed.
class PopoverWindow : public QQuickWindow {
    Q_OBJECT
public:
    static constexpr int kWidth = 360;

    // `source` is the QML of the root item; it is created with `model` as its required
    // property of that name and `composited` as its property of that name: whether the
    // window system shows what lies beneath the window's transparent pixels. A root that
    // fails to load leaves an empty window and an error on stderr.
    PopoverWindow(QQmlEngine& engine, const QByteArray& source, QObject* model,
                  bool composited = false);
    ~PopoverWindow() override;

    // Places the window against `trayGeometry` (empty when the tray host does not say)
    // on the screen under the pointer, shows it and takes focus.
    void popUp(const QRect& trayGeometry);
    void closePopover();

    // Shown, or closed by losing focus so recently that the click which took the focus
    // away is the second click on the tray item: that click must not open it again.
    bool isShownForToggle() const;
    // Ends that grace at once: the next opening is asked for by something else.
    void forgetFocusLoss() { closedByFocusLoss_.invalidate(); }

    QQuickItem* content() const { return content_; }

signals:
    void closed();
    // The window lost the focus to something else while shown, or a press landed in the
    // transparent margin beside the panel: a click elsewhere.
    void deactivated();
    // The first frame after a popUp has been drawn (benchmarks measure the time to it).
    void shownFrame();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    bool event(QEvent* event) override;

private:
    void fitToContent();

    void place();
    // The transparent margin between the window's edge and the panel's.
    int shadowMargin() const;

    QPointer<QQuickItem> content_;
    QRect trayGeometry_;
    QElapsedTimer closedByFocusLoss_;
    bool waitingForFrame_ = false;
};

} // namespace pw::ui
