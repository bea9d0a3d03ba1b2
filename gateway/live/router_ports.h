#pragma once

#include "gateway/endpoint.h"

#include <cstdint>

namespace gateway {

// Whether no program of this machine uses the port itself.
bool isFreeOnRouter(Protocol protocol, uint16_t port);

} // namespace gateway
