// What private hosts have to do with gatekeepers outside.
#pragma once

#include "nat/full/state.h"

namespace full_scope {

// The record of a host and a gatekeeper, told apart by their addresses; none when there is none.
Index findRegistration(uint32_t inside, uint32_t gatekeeper);

// The same for a request that the host sends: made when there is none. When all are in use, one
// that no gatekeeper has confirmed gives way, else the one longest without a request if it is some
// minutes old.
Index registrationFor(uint32_t inside, uint32_t gatekeeper);

// Counts an answer to a request of the host. False when none is open: the answer tells nothing.
// What was asked of a group, and what it has opened, is the answering gatekeeper's from then on.
bool answerRequest(uint32_t inside, uint32_t gatekeeper, Index& registration);

// A gatekeeper has answered with GCF or RCF.
void confirmRegistration(Index registration);

// The host is no longer registered: its mappings end.
void endRegistration(Index registration);

// The same, and its record is forgotten.
void dropRegistration(Index registration);

} // namespace full_scope
