// Which H.323 traffic goes to which translator.
#pragma once

#include <cstdint>

#include "host/packet_headers.h"
#include "include/h323nat.h"

inline constexpr uint16_t callSignallingPort = 1720; // H.225.0, TCP
inline constexpr uint16_t t120Port = 1503;           // T.120 data, TCP
inline constexpr uint16_t rasPort = 1719;            // H.225.0 RAS, UDP

// Each tries its rules in order on a packet and answers whether a translator rewrote the payload.
// The receiving rules are all tried. The sending rules end with the first that rewrote something.
bool applyReceivingRules(HostContext* hostContext, const TcpSegment& segment);
bool applySendingRules(HostContext* hostContext, const TcpSegment& segment);

// For a datagram from port 1719.
bool applyRasRule(HostContext* hostContext, const UdpDatagram& datagram);
