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
            QGuiApplication::setPalette(pw::ui::darkPalette());
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
