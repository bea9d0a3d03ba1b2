// The host's functions as the full scope asks them.
#pragma once

#include "nat/full/endpoints.h"

namespace full_scope {

// Asks the host for what stands for a private endpoint. False when it refused.
bool askHost(uint8_t role, const EndpointKey& inside, const Asking& asking,
             EndpointKey& publicEndpoint);

// The private end of the connection that a packet from outside belongs to; false when the host does
// not know it.
bool askWhose(const EndpointKey& publicEndpoint, const EndpointKey& outside, EndpointKey& inside);

} // namespace full_scope
