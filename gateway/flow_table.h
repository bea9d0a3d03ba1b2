#pragma once

#include "gateway/endpoint.h"
#include "gateway/port_allocator.h"
#include "include/h323nat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <unordered_map>

namespace gateway {

// Seconds of the traffic's own clock: capture time in a replay.
using Seconds = int64_t;

struct FlowTableSettings {
    uint32_t publicAddress = 0;
    uint16_t firstPort = 1024; // public ports for endpoints whose own port is taken
    uint16_t lastPort = 65535;
    // When either number is reached, the longest idle flow or mapping gives way.
    size_t maxFlows = 65536;
    size_t maxOpenBindings = 8192;
    Seconds udpIdle = 300;
    Seconds tcpIdle = 7200;
    Seconds closedTcpIdle = 60; // after a FIN or RST
    Seconds openIdle = 300;     // a mapping that the module opened and no flow uses
};

// What stands for one TCP port of a private host, or for an even UDP port and the odd one above
// it. The public ports have the same parity, so an RTP port's neighbour is its RTCP port on both
// sides. A private endpoint has the same public endpoint whatever it talks to (RFC 4787, 4.1).
struct Binding {
    Protocol protocol = Protocol::Tcp;
    Endpoint inside; // the (even) base port
    uint16_t publicBase = 0;
    std::array<bool, 2> open{};                 // accepts packets from any outside party
    std::array<HostMappingRecord, 2> records{}; // of the endpoints, for the module
    bool permanent = false;
    size_t flows = 0;
    Seconds lastUse = 0;
    std::list<Binding>* home = nullptr; // the table's list that it stands in
};

// One TCP or UDP flow through a binding.
struct Flow {
    FlowId insideView;
    FlowId outsideView;
    HostMappingRecord record{};
    std::list<Binding>::iterator binding;
    Seconds lastUse = 0;
    bool closing = false;

    [[nodiscard]] const Endpoint& inside() const { return insideView.local; }
    [[nodiscard]] const Endpoint& publicEndpoint() const { return outsideView.local; }
};

// An opened media mapping: the answer to the module and its two records.
struct OpenedPair {
    Endpoint publicEndpoint;
    HostMappingRecord* first = nullptr;
    HostMappingRecord* second = nullptr;
    bool reused = false;
};

// The flow table of an IPv4 NAT. Ports are kept where they are free. Memory is bounded by the
// settings. Records that the module may know are never given back to the system: a record of an
// ended flow is cleared and rests at the end of the line of those to be used again.
class FlowTable {
public:
    explicit FlowTable(const FlowTableSettings& settings);
    FlowTable(const FlowTable&) = delete;
    FlowTable& operator=(const FlowTable&) = delete;

    // The flow of a packet that a private host sends; made when it is new. Null when no public
    // port is left.
    Flow* fromInside(const FlowId& insideView, Seconds now);

    // The flow of a packet from outside, by either view. Made when the private endpoint is open to
    // any party; otherwise null when there is none.
    Flow* fromOutside(const FlowId& outsideView, Seconds now);
    Flow* towardsInside(const FlowId& insideView, Seconds now);

    // A FIN or RST ends the flow after a short idle time, and at once takes the media records out
    // of its list. A SYN revives it.
    void noteTcpFlags(Flow& flow, uint8_t flags);

    // Opens a UDP port and the one above it to any outside party; asked again for the same
    // endpoint it answers the same pair. nullopt when no port is left, and for port 65535, which
    // has no neighbour. For an odd port the neighbour belongs to another pair: it is opened at
    // the next public port where that is free.
    std::optional<OpenedPair> openPair(const Endpoint& inside, Seconds now);

    // Opens a TCP port to any outside party; nullopt when no port is left.
    std::optional<Endpoint> openPort(const Endpoint& inside, Seconds now, bool& reused);

    // Opens exactly this TCP port, on both sides, for good. False when it is taken.
    bool publish(const Endpoint& inside);

    // Without any side effect.
    Flow* findInside(const FlowId& insideView);
    Flow* findOutside(const FlowId& outsideView);

    [[nodiscard]] size_t flowCount() const { return byInsideView_.size(); }

private:
    using FlowList = std::list<Flow>;
    using BindingList = std::list<Binding>;
    enum Age : size_t { UdpFlows, TcpFlows, ClosedFlows, AgeCount };

    static uint16_t baseOf(Protocol protocol, uint16_t port);
    PortAllocator& portsOf(Protocol protocol);
    [[nodiscard]] static Age ageOf(const Flow& flow);

    std::optional<BindingList::iterator> bind(Protocol protocol, const Endpoint& inside,
                                              Seconds now);
    std::optional<BindingList::iterator> addBinding(Protocol protocol, const Endpoint& inside,
                                                    uint16_t publicBase, Seconds now);
    std::optional<BindingList::iterator> findBinding(Protocol protocol, const Endpoint& inside);
    void bindNeighbour(const Endpoint& inside, uint16_t publicBase, Seconds now);
    void open(BindingList::iterator binding, uint16_t insidePort, Seconds now);
    void dropBinding(BindingList::iterator binding);
    static void moveTo(BindingList& list, BindingList::iterator binding);
    Flow* addFlow(const FlowId& insideView, BindingList::iterator binding, Seconds now);
    void dropFlow(FlowList::iterator flow);
    void touch(FlowList::iterator flow, Seconds now);
    void expire(Seconds now);
    void makeRoomForFlow();

    FlowTableSettings settings_;
    PortAllocator tcpPorts_;
    PortAllocator udpPorts_;

    // Longest idle first. A binding stands in `idleBindings_` while it is open and no flow uses it.
    std::array<FlowList, AgeCount> flows_;
    FlowList freeFlows_;
    BindingList usedBindings_;
    BindingList idleBindings_;
    BindingList freeBindings_;

    std::unordered_map<FlowId, FlowList::iterator, FlowIdHash> byInsideView_;
    std::unordered_map<FlowId, FlowList::iterator, FlowIdHash> byOutsideView_;
    std::unordered_map<LocalId, BindingList::iterator, LocalIdHash> byInsideBase_;
    std::unordered_map<LocalId, BindingList::iterator, LocalIdHash> byPublicBase_;
};

} // namespace gateway
