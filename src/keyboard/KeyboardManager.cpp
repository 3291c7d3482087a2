#include "keyboard/KeyboardManager.h"
