// Runs the QML tests in qml/ with the views module and the symbol icons installed.
// PW_VIEWS_DARK=1 runs them under a dark application palette; PW_VIEWS_PICTURES=<folder>
// makes tst_pictures.qml save pictures of the popover there.
#include "ui/views/Views.h"

#include <QGuiApplication>
#include <QPalette>
#include <QQmlContext>
#include <QQmlEngine>
#include <QtQuickTest>

class Setup : public QObject {
    Q_OBJECT
public slots:
    void applicationAvailable() {
        pw::ui::setUpIcons();
        if (qEnvironmentVariableIntValue("PW_VIEWS_DARK") == 1) {
            QPalette dark;
            dark.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2e));
            dark.setColor(QPalette::WindowText, QColor(0xee, 0xee, 0xee));
            dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x20));
            dark.setColor(QPalette::Text, QColor(0xee, 0xee, 0xee));
            dark.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3d));
            dark.setColor(QPalette::ButtonText, QColor(0xee, 0xee, 0xee));
            dark.setColor(QPalette::Highlight, QColor(0x0a, 0x84, 0xff));
            dark.setColor(QPalette::HighlightedText, Qt::white);
            QGuiApplication::setPalette(dark);
        }
    }
    void qmlEngineAvailable(QQmlEngine* engine) {
        pw::ui::installViews(*engine);
        // Where tst_pictures.qml saves its pictures for review; empty: it saves nothing.
        engine->rootContext()->setContextProperty(QStringLiteral("picturesFolder"),
                                                  qEnvironmentVariable("PW_VIEWS_PICTURES"));
    }
};

QUICK_TEST_MAIN_WITH_SETUP(pw_views, Setup)

#include "QuickTestMain.moc"
