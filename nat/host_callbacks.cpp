#include "nat/host_callbacks.h"

HostCallbackTable hostCallbacks;
