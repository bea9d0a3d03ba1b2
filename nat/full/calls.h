// Calls: what belongs together from a Setup to its ReleaseComplete.
#pragma once

#include "nat/full/state.h"

namespace full_scope {

// The call that a message of this signalling connection is of: the one with its identifier, else
// the newest that is not over. None when there is none.
Index callOf(Index connection, const uint8_t* identifier);

// A new call on a signalling connection; told to nobody yet. None when no record is left.
Index beginCall(Index connection, const uint8_t* identifier);

// Tells the observer of a new call, when its aliases are known.
void tellBegin(Index call);

// The call is over: its mappings end, its H.245 endpoints are no longer waited for.
void endCall(Index call, uint8_t end);

// The call that an H.245 connection carries; none when it carries none that is running.
Index callOfControl(Index connection);

// Counts an H.245 connection to its call.
void joinCall(Index connection, Index call);

// A connection is closed or given up: its calls end so, unless an H.245 connection still carries
// them.
void connectionOver(Index connection, uint8_t end);

// The call that a connection's messages are counted to; none once it is over.
Index runningCall(Index call);

} // namespace full_scope
