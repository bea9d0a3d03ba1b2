// TCP segments of the connections that the full scope follows, and the packets that begin and end
// such a connection.
#pragma once

#include "include/h323nat.h"
#include "nat/packet.h"

namespace full_scope {

// Each answers whether octets of the payload changed.
bool sendSegment(HostContext* hostContext, const TcpSegment& segment);
bool receiveSegment(HostContext* hostContext, const TcpSegment& segment);

} // namespace full_scope
