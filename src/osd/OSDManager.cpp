#include "osd/OSDManager.h"
