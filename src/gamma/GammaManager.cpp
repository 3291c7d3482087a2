#include "gamma/GammaManager.h"
