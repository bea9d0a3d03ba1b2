// What private hosts have to do with gatekeepers outside.
#pragma once

#include "nat/full/state.h"

namespace full_scope {

// The record of a host and a gatekeeper, told apart by their addresses; none when there is none.
Index findRegistration(uint32_t inside, uint32_t gatekeeper);

// The same for a request that the host sends: made when there is none. The one longest without a
// request gives way when all are in use and it is some minutes old, or was never answered.
Index registrationFor(uint32_t inside, uint32_t gatekeeper);

// Counts an answer to a request of the host. False when none is open: the answer tells nothing. An
// answer to a request that went to a group makes the record that of the answering gatekeeper.
bool answerRequest(uint32_t inside, uint32_t gatekeeper, Index& registration);

// The host is no longer registered: its mappings end.
void endRegistration(Index registration);

// The same, and its record is forgotten.
void dropRegistration(Index registration);

} // namespace full_scope
