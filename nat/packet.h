// TCP segments and UDP datagrams as the hooks hand them on: header fields as numbers, the payload
// where it lies in the host's packet.
#pragma once

#include "nat/flow_key.h"

struct TcpSegment {
    FlowKey flow;
    uint32_t sequence;
    uint32_t acknowledgement; // means something with `ack` alone
    bool syn;
    bool ack;
    bool fin;
    bool rst;
    uint8_t* payload;
    uint32_t length; // of the payload; may be 0
};

struct UdpDatagram {
    FlowKey flow;
    uint8_t* payload;
    uint32_t length; // of the payload; may be 0
};
