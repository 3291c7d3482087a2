#include "keyboard/MediaKey.h"
