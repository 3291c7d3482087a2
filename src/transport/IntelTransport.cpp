#include "transport/IntelTransport.h"
