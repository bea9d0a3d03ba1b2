// RAS datagrams in the full scope.
#pragma once

#include "include/h323nat.h"
#include "nat/packet.h"

namespace full_scope {

// Each answers whether octets of the payload changed.
bool sendDatagram(HostContext* hostContext, const UdpDatagram& datagram);
bool receiveDatagram(HostContext* hostContext, const UdpDatagram& datagram);

} // namespace full_scope
