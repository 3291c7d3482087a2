#include "ui/ViewLoad.h"

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QRegularExpression>

#include <utility>

namespace pw::ui {
namespace {

// { module, Debian package }, made by the build from packaging/linux/qml-packages.txt.
constexpr std::pair<const char*, const char*> kQmlPackages[] = {
#include "QmlPackages.inc"
};

QString packageOf(const QString& module) {
    for (const auto& [name, package] : kQmlPackages)
        if (module == QLatin1String(name)) return QString::fromLatin1(package);
    return {};
}

} // namespace

QString viewLoadError(const QQmlComponent& component) {
    if (component.isReady()) return {};
    const QString errors = component.errorString();
    static const QRegularExpression missing(QStringLiteral("module \"([^\"]+)\" is not installed"));
    if (const auto match = missing.match(errors); match.hasMatch()) {
        const QString module = match.captured(1);
        const QString package = packageOf(module);
        return QStringLiteral("panelwright: the QML module %1 is not installed; the views cannot "
                              "be shown without it (on Debian: sudo apt install %2)")
            .arg(module, package.isEmpty() ? QStringLiteral("the package that has it") : package);
    }
    const QString first = errors.trimmed().section(QLatin1Char('\n'), 0, 0);
    return QStringLiteral("panelwright: a view cannot be loaded: %1").arg(first);
}

QString viewsLoadError(QQmlEngine& engine) {
    QFile qmldir(QStringLiteral(":/qt/qml/Panelwright/Views/qmldir"));
    if (!qmldir.open(QIODevice::ReadOnly))
        return QStringLiteral("panelwright: the views are missing from this build (no "
                              "Panelwright.Views module)");
    // "Type 1.0 File.qml" lines; singletons and the module's own lines are not made alone.
    static const QRegularExpression typeLine(QStringLiteral("^([A-Z]\\w*) [0-9.]+ \\S+\\.qml$"));
    while (!qmldir.atEnd()) {
        const QString line = QString::fromUtf8(qmldir.readLine()).trimmed();
        const auto match = typeLine.match(line);
        if (!match.hasMatch()) continue;
        QQmlComponent component(&engine);
        component.setData(QStringLiteral("import Panelwright.Views\n%1 {}\n")
                              .arg(match.captured(1))
                              .toUtf8(),
                          QUrl(QStringLiteral("qrc:/panelwright/check/%1.qml").arg(match.captured(1))));
        if (QString error = viewLoadError(component); !error.isEmpty()) return error;
    }
    return {};
}

} // namespace pw::ui
