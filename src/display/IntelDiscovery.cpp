#include "display/IntelDiscovery.h"
