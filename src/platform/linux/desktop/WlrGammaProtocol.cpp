// The gamma control protocol's interface tables. wayland-scanner writes them as C; the
// project builds C++ only, so they are compiled here with C linkage. The header comes
// first: its extern declarations give the tables' const definitions external linkage.
#include "wlr-gamma-control-unstable-v1-client-protocol.h"

// The definitions' hidden visibility yields to the header's plain declarations.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wattributes"
extern "C" {
#include "wlr-gamma-control-unstable-v1-protocol.c"
}
#pragma GCC diagnostic pop
