#pragma once

#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QVariantMap>

class QQmlEngine;

namespace pw::ui {

// A window of one fixed size around one view of the Panelwright.Views module: the
// settings window and the About panel. It has a title bar and a close button; the size
// cannot be changed.
class FixedWindow : public QQuickWindow {
    Q_OBJECT
public:
    // `type` is the view's QML type; `properties` are set on it as it is created. A view
    // that fails to load leaves an empty window and an error on stderr.
    FixedWindow(QQmlEngine& engine, const QString& type, const QVariantMap& properties,
                QSize size, Qt::WindowFlags flags);
    ~FixedWindow() override;

    // Shows it centred the first time, then where the user left it; in front, with focus.
    void present();

    QQuickItem* content() const { return content_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    QPointer<QQuickItem> content_;
    bool placed_ = false;
};

} // namespace pw::ui
