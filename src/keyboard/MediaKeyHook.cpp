#include "keyboard/MediaKeyHook.h"
