#pragma once

#include "gateway/endpoint.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct nfct_handle;
struct nf_conntrack;

namespace gateway {

// One connection that the kernel tracks. The original direction is the one of its first packet, as
// that packet arrived; the reply direction is what an answer looks like when it arrives. With
// translation the two differ in more than their order.
struct TrackedFlow {
    Protocol protocol = Protocol::Udp;
    Endpoint originalSource;
    Endpoint originalDestination;
    Endpoint replySource;
    Endpoint replyDestination;
    uint32_t secondsLeft = 0;     // until the kernel forgets it, if no packet comes
    bool tcpOpen = false;         // TCP: being opened or established, no FIN or RST seen
    bool hasHelper = false;       // one of the kernel's own helpers works on it
    uint64_t originalPackets = 0; // both 0 where the kernel does not count
    uint64_t replyPackets = 0;
};

// Packets of a private host and to it.
struct PacketCounts {
    uint64_t sent = 0;
    uint64_t received = 0;
};

// Both views of a flow between a private endpoint and an outside one.
struct FlowViews {
    Endpoint inside;
    Endpoint outside; // public endpoint; equals `inside` when nothing translates the flow
    Endpoint remote;
    bool hasHelper = false;
    PacketCounts packets;
};

// The flow seen from the private endpoint; `startedInside` tells who sent its first packet.
FlowViews viewsOf(const TrackedFlow& flow, bool startedInside);

// The kernel's connection table of this network namespace.
class Conntrack {
public:
    Conntrack();
    ~Conntrack();
    Conntrack(const Conntrack&) = delete;
    Conntrack& operator=(const Conntrack&) = delete;

    // Empty, or why the connection table cannot be reached.
    [[nodiscard]] const std::string& failure() const { return failure_; }

    // The connection to which a packet from `source` to `destination` belongs, as the packet looks
    // before translation; nullopt when there is none.
    std::optional<TrackedFlow> find(Protocol protocol, const Endpoint& source,
                                    const Endpoint& destination);

    // All TCP and UDP connections over IPv4. False when the kernel did not answer.
    bool list(std::vector<TrackedFlow>& flows);

    // Forgets one connection, so that its next packet is translated anew.
    bool remove(const TrackedFlow& flow);

private:
    nfct_handle* handle_ = nullptr;
    std::string failure_;
    std::vector<TrackedFlow> received_;

    static int collect(unsigned type, nf_conntrack* entry, void* self);
    int query(unsigned kind, const void* data);
};

} // namespace gateway
