#include "support/RunLoop.h"
