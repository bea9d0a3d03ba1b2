// Which H.323 traffic goes to which translator.
#pragma once

#include "host/packet_headers.h"
#include "include/h323nat.h"
#include "nat/well_known_ports.h"

// Each tries its rules in order on a packet and answers whether a translator rewrote the payload.
// The receiving rules are all tried. The sending rules end with the first that rewrote something.
bool applyReceivingRules(HostContext* hostContext, const TcpSegment& segment);
bool applySendingRules(HostContext* hostContext, const TcpSegment& segment);

// For a datagram from port 1719.
bool applyRasRule(HostContext* hostContext, const UdpDatagram& datagram);
