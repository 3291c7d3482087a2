#include "ui/ItemMap.h"

#include <QFile>
#include <QHash>
#include <QQuickItem>
#include <QTextStream>

namespace pw::ui {
namespace {

void walk(QQuickItem* item, const QString& path, QHash<QString, int>& seen, QTextStream& out) {
    QString here = path;
    const QString name = item->objectName();
    if (!name.isEmpty() && item->isVisible()) {
        const QString base = path.isEmpty() ? name : path + u'/' + name;
        const int occurrence = seen[base]++;
        here = base + u'#' + QString::number(occurrence);
        const QPointF topLeft = item->mapToGlobal(QPointF(0, 0));
        out << here << '\t' << qRound(topLeft.x()) << '\t' << qRound(topLeft.y()) << '\t'
            << qRound(item->width()) << '\t' << qRound(item->height());
        const QVariant text = item->property("text");
        if (text.isValid()) out << '\t' << text.toString();
        out << '\n';
    }
    for (QQuickItem* child : item->childItems()) walk(child, here, seen, out);
}

} // namespace

void writeItemMap(QQuickItem* root, const QString& file) {
    if (!root) return;
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) return;
    QTextStream out(&f);
    QHash<QString, int> seen;
    walk(root, QString(), seen, out);
}

} // namespace pw::ui
