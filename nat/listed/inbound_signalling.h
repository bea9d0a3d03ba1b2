// Call signalling (H.225.0) of the call to the published host, both directions.
#pragma once

#include <cstdint>

#include "include/h323nat.h"

// A received segment to TCP port 1720, whatever its length. `syn` is 1 when the SYN flag is set.
// Result: 1 when a message in the segment was rewritten, else 0.
uint32_t InboundSignallingFromRemote(HostContext* hostContext, uint32_t sourceAddress,
                                     uint16_t sourcePort, uint8_t* payload, uint32_t length,
                                     uint32_t sequence, uint8_t syn);

// A segment from the published host's port 1720 to the call's outside party.
// Result: 1 when a message in the segment was rewritten, else 0.
uint32_t InboundSignallingToRemote(HostContext* hostContext, uint8_t* payload, uint32_t length,
                                   uint32_t sequence);
