#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QQuickImageProvider>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QStringView>

namespace pw::ui {

// The views name their pictures by symbol names ("sun.max.fill", "gearshape", ...). This is
// the one place that says which icon draws each of them: a freedesktop symbolic icon of the
// theme, or one of the few drawings shipped in our resources ("panelwright-..." names).

// The icon name for a symbol, empty when the symbol is not mapped.
QString freedesktopIconFor(QStringView symbol);

// Every mapped symbol name, in a stable order.
QStringList mappedSymbolNames();

// The icon for a symbol; null when the symbol is unmapped or no icon of that name is found.
QIcon symbolIcon(QStringView symbol);

// The symbol drawn in one colour at `size` device pixels (transparent elsewhere). An unmapped
// symbol draws the theme's "image-missing" picture, so a mistake is visible, never blank.
QImage renderSymbol(QStringView symbol, QSize size, const QColor& color);

// Parses "<name>?color=#rrggbb" (the '#' may also arrive as "%23" or be left out).
// The colour is invalid when none is given.
struct SymbolRequest {
    QString name;
    QColor color;
};
SymbolRequest parseSymbolRequest(const QString& id);

// Serves image://symbol/<name>?color=#rrggbb to QML.
class SymbolImageProvider final : public QQuickImageProvider {
public:
    SymbolImageProvider();
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace pw::ui
