// A host with nothing behind it, and calls for the module to follow.
#pragma once

#include <cstddef>

#include "include/h323nat.h"

namespace bench {

HostContext* hostContext();

// Starts the module afresh and lets it follow `calls` outbound calls, each with its own H.245
// address. Ends the program with a message when a call was not taken.
void startModule(size_t calls);

// The same in the full scope, with room for 1,000 calls; each has its H.245 connection too.
void startFullScope(size_t calls);

} // namespace bench
