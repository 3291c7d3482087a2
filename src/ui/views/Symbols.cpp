#include "ui/views/Symbols.h"

#include <QLoggingCategory>
#include <QPainter>

#include <array>

Q_LOGGING_CATEGORY(lcSymbols, "panelwright.views.symbols")

namespace pw::ui {

namespace {

constexpr QStringView kOwnIconPrefix = u"panelwright-";
constexpr QStringView kOwnIconDirectory = u":/panelwright/icons/";

struct Mapping {
    QStringView symbol;
    QStringView icon;
};

// Adwaita's symbolic names; the two it lacks are our own drawings.
constexpr std::array kMappings = {
    Mapping{u"sun.max.fill", u"display-brightness-symbolic"},
    Mapping{u"speaker.wave.2.fill", u"audio-volume-high-symbolic"},
    Mapping{u"speaker.slash.fill", u"audio-volume-muted-symbolic"},
    Mapping{u"display", u"video-display-symbolic"},
    Mapping{u"display.trianglebadge.exclamationmark", u"panelwright-display-warning-symbolic"},
    Mapping{u"info.circle", u"help-about-symbolic"},
    Mapping{u"gearshape", u"emblem-system-symbolic"},
    Mapping{u"power", u"system-shutdown-symbolic"},
    Mapping{u"arrow.right.arrow.left", u"object-flip-horizontal-symbolic"},
    Mapping{u"tv", u"tv-symbolic"},
    Mapping{u"cable.connector", u"panelwright-usb-c-symbolic"},
};

QIcon iconNamed(const QString& iconName) {
    if (iconName.startsWith(kOwnIconPrefix))
        return QIcon(kOwnIconDirectory.toString() + iconName + QStringLiteral(".svg"));
    return QIcon::fromTheme(iconName);
}

} // namespace

QString freedesktopIconFor(QStringView symbol) {
    for (const auto& mapping : kMappings)
        if (mapping.symbol == symbol) return mapping.icon.toString();
    return {};
}

QStringList mappedSymbolNames() {
    QStringList names;
    names.reserve(static_cast<qsizetype>(kMappings.size()));
    for (const auto& mapping : kMappings) names.append(mapping.symbol.toString());
    return names;
}

QIcon symbolIcon(QStringView symbol) {
    const QString iconName = freedesktopIconFor(symbol);
    if (iconName.isEmpty()) return {};
    return iconNamed(iconName);
}

QImage renderSymbol(QStringView symbol, QSize size, const QColor& color) {
    if (size.isEmpty()) size = QSize(16, 16);
    QIcon icon = symbolIcon(symbol);
    if (icon.isNull()) {
        qCWarning(lcSymbols) << "No icon for the symbol" << symbol.toString()
                             << "- add it to the symbol mapping";
        icon = QIcon::fromTheme(QStringLiteral("image-missing"));
    }

    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (!icon.isNull()) {
        // Symbolic icons are one-colour shapes: draw the shape, then keep its coverage
        // and replace the colour.
        icon.paint(&painter, QRect(QPoint(0, 0), size), Qt::AlignCenter);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color.isValid() ? color : QColor(Qt::black));
    } else {
        // Not even the theme's own placeholder: a crossed box, never an empty square.
        painter.setPen(QPen(color.isValid() ? color : QColor(Qt::red), 1));
        const QRect box = image.rect().adjusted(0, 0, -1, -1);
        painter.drawRect(box);
        painter.drawLine(box.topLeft(), box.bottomRight());
        painter.drawLine(box.topRight(), box.bottomLeft());
    }
    return image;
}

SymbolRequest parseSymbolRequest(const QString& id) {
    SymbolRequest request;
    const qsizetype question = id.indexOf(u'?');
    request.name = question < 0 ? id : id.left(question);
    if (question < 0) return request;

    // The colour is read by hand: "#rrggbb" is not a valid query value for QUrlQuery.
    const QStringList pairs = id.mid(question + 1).split(u'&');
    for (const QString& pair : pairs) {
        if (!pair.startsWith(u"color=")) continue;
        QString value = pair.mid(6);
        if (value.startsWith(u"%23")) value = value.mid(3);
        if (!value.startsWith(u'#')) value.prepend(u'#');
        const QColor color = QColor::fromString(value);
        if (color.isValid()) request.color = color;
    }
    return request;
}

SymbolImageProvider::SymbolImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage SymbolImageProvider::requestImage(const QString& id, QSize* size,
                                         const QSize& requestedSize) {
    const SymbolRequest request = parseSymbolRequest(id);
    QSize wanted = requestedSize;
    if (wanted.width() <= 0 && wanted.height() <= 0) wanted = QSize(16, 16);
    if (wanted.width() <= 0) wanted.setWidth(wanted.height());
    if (wanted.height() <= 0) wanted.setHeight(wanted.width());
    QImage image = renderSymbol(request.name, wanted, request.color);
    if (size) *size = image.size();
    return image;
}

} // namespace pw::ui
