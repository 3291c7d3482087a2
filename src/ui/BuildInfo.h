#pragma once

#include <QString>

namespace pw::ui {

// The version as people read it: split at ".", empty pieces dropped, trailing "0" pieces
// dropped while more than two remain ("3.0.0.0" -> "3.0", "2.1.0" -> "2.1", "1.2.0.5" and
// "2.0" unchanged). No version at all (null or empty) reads "1.0".
QString shortVersion(const QString& version);

// The commit the program was built from, or "dev" for a build made outside a git checkout.
QString buildIdentifier(const QString& commit);

// This build's version (CMake's project version, shortened) and build identifier.
struct BuildInfo {
    QString version;
    QString build;

    static BuildInfo current();
};

} // namespace pw::ui
