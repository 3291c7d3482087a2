#pragma once

#include "platform/HostFacts.h"

#include <QString>

namespace pw::ui {

// The version as people read it: split at ".", empty pieces dropped, trailing "0" pieces
// dropped while more than two remain ("3.0.0.0" -> "3.0", "2.1.0" -> "2.1", "1.2.0.5" and
// "2.0" unchanged). No version at all (null or empty) reads "1.0".
QString shortVersion(const QString& version);

// The commit the program was built from, or "dev" for a build made outside a git checkout.
QString buildIdentifier(const QString& commit);

// The build as About and the updates dialog show it: the version shortened, the commit
// (or "dev"), and the copyright line (empty: the panel's own).
struct BuildInfo {
    QString version;
    QString build;
    QString copyright;

    // From the facts the machine's host gives.
    static BuildInfo of(const platform::BuildFacts& facts);
};

} // namespace pw::ui
