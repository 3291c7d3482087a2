#include "ui/BuildInfo.h"

#include <QStringList>

// Both come from the build (src/ui/CMakeLists.txt); the fallbacks keep a build made some
// other way honest rather than broken.
#ifndef PW_VERSION
#define PW_VERSION ""
#endif
#ifndef PW_GIT_COMMIT
#define PW_GIT_COMMIT ""
#endif

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

BuildInfo BuildInfo::current() {
    return {shortVersion(QStringLiteral(PW_VERSION)), buildIdentifier(QStringLiteral(PW_GIT_COMMIT))};
}

} // namespace pw::ui
