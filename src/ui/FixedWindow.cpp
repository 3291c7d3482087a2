#include "ui/FixedWindow.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPalette>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QScreen>

#include <cstdio>

namespace pw::ui {

FixedWindow::FixedWindow(QQmlEngine& engine, const QString& type, const QVariantMap& properties,
                         QSize size, Qt::WindowFlags flags) {
    setFlags(flags | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setColor(QGuiApplication::palette().color(QPalette::Window));
    setMinimumSize(size);
    setMaximumSize(size);
    resize(size);

    QQmlComponent component(&engine);
    component.setData(QStringLiteral("import Panelwright.Views\n%1 {}\n").arg(type).toUtf8(),
                      QUrl(QStringLiteral("qrc:/panelwright/shell/%1.qml").arg(type)));
    // Made only from a ready component: Qt 6.4 crashes making one that failed to load.
    QObject* root = component.isReady() ? component.createWithInitialProperties(properties)
                                        : nullptr;
    content_ = qobject_cast<QQuickItem*>(root);
    if (!content_) {
        std::fprintf(stderr, "panelwright: the view %s could not be loaded: %s\n",
                     qPrintable(type), qPrintable(component.errorString()));
        delete root;
        return;
    }
    content_->setParentItem(contentItem());
    content_->setSize(size);
}

FixedWindow::~FixedWindow() { delete content_; }

void FixedWindow::present() {
    if (!placed_) {
        placed_ = true;
        if (QScreen* screen = QGuiApplication::primaryScreen()) {
            const QRect area = screen->availableGeometry();
            setPosition(area.center() - QPoint(width() / 2, height() / 2));
        }
    }
    if (windowState() & Qt::WindowMinimized) setWindowStates(windowStates() & ~Qt::WindowMinimized);
    show();
    raise();
    requestActivate();
}

void FixedWindow::keyPressEvent(QKeyEvent* event) {
    QQuickWindow::keyPressEvent(event);
    // Escape closes, as in any dialog, unless a control used the key (an open picker).
    if (event->isAccepted() || event->key() != Qt::Key_Escape) return;
    event->accept();
    close();
}

} // namespace pw::ui
