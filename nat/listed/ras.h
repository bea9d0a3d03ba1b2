// RAS (H.225.0) messages that private endpoints send to a gatekeeper.
#pragma once

#include <cstdint>

#include "include/h323nat.h"

// The payload of a UDP datagram from port 1719, and the address that it is sent to.
// Result: 1 when the message was rewritten, else 0.
uint32_t TranslateRasMessage(HostContext* hostContext, uint8_t* datagram, uint32_t length,
                             uint32_t destinationAddress);
