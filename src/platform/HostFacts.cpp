#include "platform/HostFacts.h"

// Passed by the build (src/platform/CMakeLists.txt); the fallbacks keep a build made some
// other way honest rather than broken.
#ifndef PW_VERSION
#define PW_VERSION "0.0.0"
#endif
#ifndef PW_BUILD_NUMBER
#define PW_BUILD_NUMBER "1"
#endif
#ifndef PW_GIT_COMMIT
#define PW_GIT_COMMIT ""
#endif
#ifndef PW_COPYRIGHT
#define PW_COPYRIGHT "© 2026 The Panelwright developers"
#endif

namespace pw::platform {

BuildFacts thisBuild() {
    return {PW_VERSION, PW_BUILD_NUMBER, PW_GIT_COMMIT, PW_COPYRIGHT, "com.panelwright.app"};
}

} // namespace pw::platform
