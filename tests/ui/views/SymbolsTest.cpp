#include "ViewsTest.h"

#include "ddc/VCP.h"
#include "ui/views/Symbols.h"

#include <QTest>

using namespace pw::ui;

namespace {

// Pixels the symbol covers, and how many of them are not in the asked colour.
struct Coverage {
    int covered = 0;
    int offColour = 0;
};

Coverage coverageOf(const QImage& image, const QColor& colour) {
    Coverage c;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() < 200) continue;
            ++c.covered;
            if (qAbs(pixel.red() - colour.red()) > 8 || qAbs(pixel.green() - colour.green()) > 8 ||
                qAbs(pixel.blue() - colour.blue()) > 8)
                ++c.offColour;
        }
    return c;
}

class SymbolsTest : public QObject {
    Q_OBJECT
private slots:
    void everyMappedSymbolDrawsInItsColour_data() {
        QTest::addColumn<QString>("symbol");
        for (const QString& name : mappedSymbolNames()) QTest::newRow(qPrintable(name)) << name;
    }
    void everyMappedSymbolDrawsInItsColour() {
        QFETCH(QString, symbol);
        QVERIFY2(!symbolIcon(symbol).isNull(), qPrintable(freedesktopIconFor(symbol)));
        const QColor orange(0xff, 0x9f, 0x0a);
        const Coverage c = coverageOf(renderSymbol(symbol, QSize(32, 32), orange), orange);
        // A real picture covers a good part of its square, and only in the asked colour.
        QVERIFY2(c.covered > 60, qPrintable(QString::number(c.covered)));
        QCOMPARE(c.offColour, 0);
    }

    void everyInputSourceAndIndicatorSymbolIsMapped() {
        QStringList needed{QStringLiteral("sun.max.fill"), QStringLiteral("speaker.wave.2.fill"),
                           QStringLiteral("speaker.slash.fill")};
        for (pw::InputSource source : pw::kAllInputSources) {
            const std::string_view icon = pw::icon(source);
            needed.append(QString::fromUtf8(icon.data(), static_cast<qsizetype>(icon.size())));
        }
        for (const QString& name : needed)
            QVERIFY2(mappedSymbolNames().contains(name), qPrintable(name));
    }

    void unmappedSymbolIsVisibleNotBlank() {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("No icon for the symbol"));
        QVERIFY(freedesktopIconFor(u"no.such.symbol").isEmpty());
        const Coverage c =
            coverageOf(renderSymbol(u"no.such.symbol", QSize(24, 24), Qt::red), Qt::red);
        QVERIFY(c.covered > 10);
    }

    void requestsCarryNameAndColour_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QColor>("colour");
        QTest::newRow("hash") << "gearshape?color=#ff9f0a" << "gearshape" << QColor(0xff, 0x9f, 0x0a);
        QTest::newRow("escaped") << "tv?color=%2330d158" << "tv" << QColor(0x30, 0xd1, 0x58);
        QTest::newRow("bare") << "power?color=ffffff" << "power" << QColor(Qt::white);
        QTest::newRow("no colour") << "display" << "display" << QColor();
        QTest::newRow("bad colour") << "display?color=#zz" << "display" << QColor();
    }
    void requestsCarryNameAndColour() {
        QFETCH(QString, id);
        QFETCH(QString, name);
        QFETCH(QColor, colour);
        const SymbolRequest request = parseSymbolRequest(id);
        QCOMPARE(request.name, name);
        QCOMPARE(request.color, colour);
    }

    void providerHonoursTheRequestedSize() {
        SymbolImageProvider provider;
        QSize size;
        const QImage image = provider.requestImage(QStringLiteral("tv?color=#000000"), &size, QSize(40, 0));
        QCOMPARE(size, QSize(40, 40));
        QCOMPARE(image.size(), QSize(40, 40));
    }
};

} // namespace

std::vector<std::unique_ptr<QObject>> makeSymbolsTests() {
    std::vector<std::unique_ptr<QObject>> tests;
    tests.push_back(std::make_unique<SymbolsTest>());
    return tests;
}

#include "SymbolsTest.moc"
