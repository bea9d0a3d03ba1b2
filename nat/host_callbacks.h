// The host's functions, copied at start-up. All null before.
#pragma once

#include "host/h323nat.h"

extern HostCallbackTable hostCallbacks;
