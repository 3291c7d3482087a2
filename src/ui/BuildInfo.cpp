#include "ui/BuildInfo.h"

#include <QStringList>

namespace pw::ui {

QString shortVersion(const QString& version) {
    QStringList pieces = version.split(u'.', Qt::SkipEmptyParts);
    if (pieces.isEmpty()) return QStringLiteral("1.0");
    while (pieces.size() > 2 && pieces.last() == u"0") pieces.removeLast();
    return pieces.join(u'.');
}

QString buildIdentifier(const QString& commit) {
    const QString trimmed = commit.trimmed();
    return trimmed.isEmpty() ? QStringLiteral("dev") : trimmed;
}

BuildInfo BuildInfo::of(const platform::BuildFacts& facts) {
    return {shortVersion(QString::fromStdString(facts.version)),
            buildIdentifier(QString::fromStdString(facts.commit)),
            QString::fromStdString(facts.copyright)};
}

} // namespace pw::ui
