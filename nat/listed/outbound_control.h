// H.245 of calls that private hosts place: the direction from the private caller.
#pragma once

#include <cstdint>

#include "nat/listed/connection_pools.h"

// A segment that a private caller sends on a followed H.245 connection. The record's hostContext
// and insideFlow are set. Result: 1 when a message in the segment was rewritten, 0 when none was,
// -1 when it was refused.
int32_t SendControlSegment(ControlChannelConnection& record, uint8_t* payload, uint32_t length,
                           uint32_t sequence);
