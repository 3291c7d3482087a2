#include "ViewsTest.h"

#include "ui/views/QtLevelIndicators.h"
#include "ui/views/Views.h"

#include <QDir>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTest>

using namespace pw::ui;
using pw::platform::IndicatorContent;
using pw::platform::Point;

namespace {

class LevelIndicatorTest : public QObject {
    Q_OBJECT
private slots:
    void placesTheWindowOnTheScreenOfTheOrigin() {
        // A 1920 x 1080 primary screen with a 30-point panel at its bottom, and a taller
        // screen to its right. The core's y grows upwards from the primary's bottom edge.
        const QRect primary(0, 0, 1920, 1080);
        const QRect primaryAvailable(0, 0, 1920, 1050);
        const QRect right(1920, 0, 2560, 1440);
        const QList<QRect> screens{primary, right};
        const QPoint current(5, 5);

        // Centred, 100 above the bottom of the usable area of the primary screen.
        QCOMPARE(indicatorPosition(Point{860, 130}, primary, primaryAvailable, screens, current),
                 QPoint(860, 1080 - 130 - 70));
        // The right screen hangs 360 below the primary's bottom edge: y is negative there.
        QCOMPARE(indicatorPosition(Point{3100, -260}, primary, primaryAvailable, screens, current),
                 QPoint(3100, 1440 - 100 - 70));
        // A point on no screen: centred low on the primary screen.
        QCOMPARE(indicatorPosition(Point{9000, 100}, primary, primaryAvailable, screens, current),
                 QPoint(860, 1050 - 100 - 70));
        // No screen known to the core: where the window was.
        QCOMPARE(indicatorPosition(std::nullopt, primary, primaryAvailable, screens, current),
                 current);
    }

    void oneWindowShowsEachLevelAndHides() {
        QQmlEngine engine;
        installViews(engine);
        QtLevelIndicators indicators(engine);
        auto made = indicators.createWindow();
        auto* window = static_cast<QtLevelIndicatorWindow*>(made.get())->window();
        QVERIFY(window);
        QVERIFY(!window->isVisible());
        QCOMPARE(window->size(), QSize(kIndicatorWidth, kIndicatorHeight));
        QVERIFY(window->flags().testFlag(Qt::WindowDoesNotAcceptFocus));
        QVERIFY(window->flags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(window->flags().testFlag(Qt::FramelessWindowHint));

        IndicatorContent content;
        content.symbol = "sun.max.fill";
        content.level = 0.5f;
        content.fillWidth = 66;
        made->show(content);
        QVERIFY(window->isVisible());
        QCOMPARE(window->property("litSegments").toInt(), 8);
        QVERIFY(QGuiApplication::focusWindow() != window);
        savePicture(window, "indicator-brightness.png");

        // The same window takes the next content; 1/3 of the track lights 5 of 16.
        content.symbol = "speaker.wave.2.fill";
        content.level = 1.0f / 3.0f;
        content.fillWidth = 132.0 / 3.0;
        made->show(content);
        QCOMPARE(window->property("symbol").toString(), QStringLiteral("speaker.wave.2.fill"));
        QCOMPARE(window->property("litSegments").toInt(), 5);

        content.symbol = "speaker.slash.fill";
        content.level = 0;
        content.fillWidth = 0;
        made->show(content);
        QCOMPARE(window->property("litSegments").toInt(), 0);
        savePicture(window, "indicator-mute.png");

        content.level = 1;
        content.fillWidth = 132;
        made->show(content);
        QCOMPARE(window->property("litSegments").toInt(), 16);

        made->hide();
        QVERIFY(!window->isVisible());
    }

private:
    // Pictures for review when PW_VIEWS_PICTURES names a folder.
    static void savePicture(QQuickWindow* window, const char* name) {
        const QString folder = qEnvironmentVariable("PW_VIEWS_PICTURES");
        if (folder.isEmpty()) return;
        QDir().mkpath(folder);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        window->grabWindow().save(QDir(folder).filePath(QString::fromLatin1(name)));
    }
};

} // namespace

std::vector<std::unique_ptr<QObject>> makeLevelIndicatorTests() {
    std::vector<std::unique_ptr<QObject>> tests;
    tests.push_back(std::make_unique<LevelIndicatorTest>());
    return tests;
}

#include "LevelIndicatorTest.moc"
