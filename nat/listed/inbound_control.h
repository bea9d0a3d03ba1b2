// H.245 of the call to the published host: the direction from the published host.
#pragma once

#include <cstdint>

#include "include/h323nat.h"

// A segment from the published host's H.245 port to the call's outside party.
// Result: 1 when a message in the segment was rewritten, else 0.
uint32_t InboundControlToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                uint32_t sequence);
