// The host's functions, copied at start-up. All null before.
#pragma once

#include "include/h323nat.h"

extern HostCallbackTable hostCallbacks;
