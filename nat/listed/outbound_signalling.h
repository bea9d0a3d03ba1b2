// Call signalling (H.225.0) of calls that private hosts place.
#pragma once

#include <cstdint>

#include "nat/listed/connection_pools.h"

// A received segment from TCP port 1720 that carries data or is a SYN+ACK. `key` is its flow,
// called party to public address. Never changes the payload. Result: 0; -1 when the segment was
// refused; -101 when no record was free.
int32_t ReceiveCallSignalSegment(const FlowKey& key, uint8_t* payload, uint32_t length,
                                 uint32_t sequence);

// A segment that a private caller sends on a followed call-signalling connection.
// Result: 1 when the payload was rewritten, else 0.
int32_t SendCallSignalSegment(HostContext* hostContext, uint8_t* payload, uint32_t length);
