#include "keyboard/MediaApplicationWatcher.h"
