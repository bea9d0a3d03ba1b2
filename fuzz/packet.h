// One packet on exactly sized memory, through one of the hooks, with the checks that hold for every
// packet: nothing outside the payload changes, and nothing at all without PACKET_CHANGED.
#pragma once

#include "fuzz/input.h"
#include "include/h323nat.h"
#include "nat/flow_key.h"

namespace fuzzing {

struct TcpFields {
    FlowKey flow;
    uint32_t sequence;
    uint8_t flags;
    uint32_t acknowledgement = 0;
};

/// IP header and transport header in host byte order, then the payload.
Octets tcpPacket(const TcpFields& fields, const Octets& payload);
Octets udpPacket(const FlowKey& flow, const Octets& payload);

struct HookResult {
    bool changed;  // the hook said so
    Octets octets; // the packet afterwards, IP header first
};

/// A packet that arrived from outside. `octets` begins with the IP header; it is cut or filled with
/// zeros to the length that this header states, as the contract with hosts has it.
HookResult receivePacket(HostContext& context, Octets octets);

/// A packet that a private host sent, the IP header being its first 20 octets. They and what
/// follows lie in separate memory.
HookResult sendPacket(HostContext& context, const Octets& octets);

} // namespace fuzzing
