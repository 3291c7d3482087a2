// The windows need a QApplication (the updates dialog is a widget): offscreen, with the
// software renderer, so no display and no GPU are involved.
#include <QApplication>
#include <QQuickWindow>
#include <gtest/gtest.h>

#include "ui/views/Views.h"

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    pw::ui::setUpIcons();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
