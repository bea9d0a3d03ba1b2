// TCP segments and UDP datagrams as values, and what a hook makes of them.
#pragma once

#include "include/h323nat.h"
#include "nat/flow_key.h"
#include "tests/support/octets.h"

namespace test_support {

enum TcpFlag : uint8_t { tcpFin = 0x01, tcpSyn = 0x02, tcpRst = 0x04, tcpAck = 0x10 };

/// One IPv4 packet with a TCP or UDP payload.
struct Segment {
    FlowKey flow = {};
    bool udp = false;
    uint32_t sequence = 0;
    uint8_t flags = tcpAck;
    Octets payload;
    uint32_t acknowledgement = 0;
};

/// What a hook left of a packet.
struct Delivered {
    Octets payload;
    bool changed = false; // PACKET_CHANGED was set
};

/// Run the sending or the receiving hook. The running test fails when the hook touches an octet of
/// the packet's headers.
Delivered sendSegment(HostContext& hostContext, const Segment& segment);
Delivered receiveSegment(HostContext& hostContext, const Segment& segment);

} // namespace test_support
