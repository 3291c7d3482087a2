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
        auto made = std::make_shared<QtIndicatorWindow>(engine);
        auto* window = made->window();
        QVERIFY(window);
        QVERIFY(!window->isVisible());
        QCOMPARE(window->size(), QSize(kIndicatorWidth, kIndicatorHeight));
        QVERIFY(window->flags().testFlags(Qt::WindowDoesNotAcceptFocus | Qt::WindowStaysOnTopHint |
                                          Qt::FramelessWindowHint));

        // The same window takes each content; the fill follows the level continuously,
        // within the track.
        const struct {
            const char* symbol;
            float level;
            double shown;
            const char* picture;
        } contents[] = {{"sun.max.fill", 0.5f, 66, "indicator-brightness.png"},
                        {"speaker.wave.2.fill", 0.25f, 33, nullptr},
                        {"speaker.slash.fill", 0, 0, "indicator-mute.png"},
                        {"sun.max.fill", 1.2f, 132, nullptr}}; // past the end: full
        for (const auto& c : contents) {
            made->show(IndicatorContent{c.symbol, c.level, std::nullopt});
            QVERIFY(window->isVisible());
            QCOMPARE(window->property("symbol").toString(), QString::fromLatin1(c.symbol));
            QCOMPARE(window->property("shownFill").toDouble(), c.shown);
            QVERIFY(QGuiApplication::focusWindow() != window);
            if (c.picture) savePicture(window, c.picture);
        }
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
