#include "ViewsTest.h"

#include "ui/views/Views.h"

#include <QGuiApplication>
#include <QTest>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    pw::ui::setUpIcons();
    int failures = 0;
    auto tests = makeSymbolsTests();
    for (auto& test : makeLevelIndicatorTests()) tests.push_back(std::move(test));
    for (auto& test : tests) failures += QTest::qExec(test.get(), argc, argv);
    return failures == 0 ? 0 : 1;
}
