// The two packet hooks.
//
// Nearly every packet is none of ours. So each hook first asks in a few comparisons, of the ports
// or of the outside address, whether any rule can match, and returns when none can. Only then does
// it check the protocol and the packet's lengths and try the rules one by one. Instructions of that
// first look are counted: see docs/performance.md before adding one.

#include "host/packet_headers.h"
#include "host/routing_rules.h"
#include "include/h323nat.h"
#include "nat/full/scope.h"
#include "nat/full/segments.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"

// For the packets that some rule may match. Out of line, and the hooks' last step, so that the
// short path needs no stack. All answer what the hooks answer.
#define RARE_PATH __attribute__((noinline, cold))

static void mark(PacketDescriptor& descriptor, bool changed) {
    if (changed) {
        descriptor.flags |= PACKET_CHANGED;
    }
}

RARE_PATH static uint32_t receiveSegment(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet = {descriptor.ipHeader, descriptor.transportHeader,
                               descriptor.transportLength};
    TcpSegment segment;
    if (ipProtocol(packet.ip) == protocolTcp && receivedLengthsAgree(packet) &&
        readTcp(packet, segment)) {
        mark(descriptor, applyReceivingRules(hostContext, segment));
    }
    return 0;
}

RARE_PATH static uint32_t sendSegment(HostContext* hostContext, PacketDescriptor& descriptor) {
    TcpSegment segment;
    if (readTcp({descriptor.moduleIpHeader, descriptor.transportHeader, descriptor.transportLength},
                segment)) {
        mark(descriptor, applySendingRules(hostContext, segment));
    }
    return 0;
}

RARE_PATH static uint32_t sendDatagram(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet = {descriptor.moduleIpHeader, descriptor.transportHeader,
                               descriptor.transportLength};
    UdpDatagram datagram;
    if (ipProtocol(packet.ip) == protocolUdp && readUdp(packet, datagram)) {
        mark(descriptor, applyRasRule(hostContext, datagram));
    }
    return 0;
}

RARE_PATH static uint32_t receiveInFullScope(HostContext* hostContext,
                                             PacketDescriptor& descriptor) {
    const PacketView packet = {descriptor.ipHeader, descriptor.transportHeader,
                               descriptor.transportLength};
    TcpSegment segment;
    UdpDatagram datagram;
    if (!receivedLengthsAgree(packet)) {
        return 0;
    }
    if (ipProtocol(packet.ip) == protocolTcp) {
        mark(descriptor,
             readTcp(packet, segment) && full_scope::receiveSegment(hostContext, segment));
    } else if (ipProtocol(packet.ip) == protocolUdp) {
        mark(descriptor,
             readUdp(packet, datagram) && full_scope::receiveDatagram(hostContext, datagram));
    }
    return 0;
}

RARE_PATH static uint32_t sendInFullScope(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet = {descriptor.moduleIpHeader, descriptor.transportHeader,
                               descriptor.transportLength};
    TcpSegment segment;
    UdpDatagram datagram;
    if (ipProtocol(packet.ip) == protocolTcp) {
        mark(descriptor, readTcp(packet, segment) && full_scope::sendSegment(hostContext, segment));
    } else if (ipProtocol(packet.ip) == protocolUdp) {
        mark(descriptor,
             readUdp(packet, datagram) && full_scope::sendDatagram(hostContext, datagram));
    }
    return 0;
}

// All may say yes to a packet that no rule takes, never no to one that a rule takes. In the listed
// scope the tables of the full scope are empty, and a packet too short for the one is none of the
// other's.

static bool mayMatchReceiving(const uint8_t* transport) {
    // One comparison for both source ports; few others lie between them.
    static_assert(t120Port < callSignallingPort);
    return static_cast<uint16_t>(readField<uint16_t>(transport) - t120Port) <=
               callSignallingPort - t120Port ||
           readField<uint16_t>(transport + 2) == callSignallingPort;
}

// A connection's H.245 endpoint is asked for apart: see sendToEndpoint.
static bool mayMatchSending(const uint8_t* ip, const uint8_t* transport) {
    return readField<uint16_t>(transport + 2) == callSignallingPort ||
           (ipDestination(ip) == inboundMappingState.remoteAddress &&
            ipSource(ip) == inboundMappingState.publishedAddress);
}

static bool maySendInFullScope(const uint8_t* ip, const uint8_t* transport,
                               int32_t transportLength) {
    return transportLength >= static_cast<int32_t>(shortestTcpHeader) &&
           (full_scope::mayBeFollowed(ipDestination(ip)) ||
            full_scope::mayBegin(readField<uint16_t>(transport + 2), transport[13]));
}

// Anything but TCP, and what needs a loop: out of line, so that TCP's short path keeps what it
// needs in registers.
#define SIDE_PATH __attribute__((noinline)) static uint32_t

SIDE_PATH sendToEndpoint(HostContext* hostContext, PacketDescriptor& descriptor) {
    const EndpointKey outside = {ipDestination(descriptor.moduleIpHeader),
                                 readField<uint16_t>(descriptor.transportHeader + 2)};
    return hasEndpoint(controlChannelPool.remoteEndpoints, outside)
               ? sendSegment(hostContext, descriptor)
               : 0;
}

SIDE_PATH sendOther(HostContext* hostContext, PacketDescriptor& descriptor) {
    if (descriptor.transportLength < udpHeaderLength) {
        return 0;
    }
    const auto ports = readField<Ports>(descriptor.transportHeader);
    if (full_scope::quickLook.active) {
        return full_scope::maySendDatagram(ports.destination)
                   ? sendInFullScope(hostContext, descriptor)
                   : 0;
    }
    return ports.source == rasPort ? sendDatagram(hostContext, descriptor) : 0;
}

SIDE_PATH receiveOtherInFullScope(HostContext* hostContext, PacketDescriptor& descriptor) {
    // Not transportLength, which is huge instead of negative when the two contradict each other.
    if (ipTotalLength(descriptor.moduleIpHeader) < descriptor.ipHeaderLength + udpHeaderLength) {
        return 0;
    }
    const auto ports = readField<Ports>(descriptor.transportHeader);
    return full_scope::mayReceiveDatagram(ports.source, ports.destination)
               ? receiveInFullScope(hostContext, descriptor)
               : 0;
}

uint32_t TarvexPacketOnReceiving(HostContext* hostContext, PacketDescriptor* descriptor) {
    uint8_t* ip = descriptor->ipHeader;
    const uint32_t headerLength = ipHeaderLength(ip);
    // Negative when the two lengths contradict each other; the descriptor gets its low 16 bits.
    const auto transportLength = static_cast<int32_t>(ipTotalLength(ip) - headerLength);
    descriptor->moduleIpHeader = ip;
    descriptor->ipHeaderLength = static_cast<uint16_t>(headerLength);
    uint8_t* transport = ip + headerLength;
    descriptor->transportHeader = transport;
    descriptor->transportLength = static_cast<uint16_t>(transportLength);
    descriptor->transportLengthCopy1 = static_cast<uint16_t>(transportLength);
    descriptor->transportLengthCopy2 = static_cast<uint16_t>(transportLength);

    if (transportLength >= full_scope::listedFrom) {
        return mayMatchReceiving(transport) ? receiveSegment(hostContext, *descriptor) : 0;
    }
    if (ipProtocol(ip) != protocolTcp) {
        return receiveOtherInFullScope(hostContext, *descriptor);
    }
    return full_scope::mayBeFollowed(ipSource(ip)) ? receiveInFullScope(hostContext, *descriptor)
                                                   : 0;
}

uint32_t TarvexPacketOnSending(HostContext* hostContext, PacketDescriptor* descriptor) {
    const uint8_t* ip = descriptor->moduleIpHeader;
    if (ipProtocol(ip) != protocolTcp) {
        return sendOther(hostContext, *descriptor);
    }
    const uint8_t* transport = descriptor->transportHeader;
    const int32_t transportLength = descriptor->transportLength;
    if (transportLength < full_scope::listedFrom) {
        return maySendInFullScope(ip, transport, transportLength)
                   ? sendInFullScope(hostContext, *descriptor)
                   : 0;
    }
    if (mayMatchSending(ip, transport)) {
        return sendSegment(hostContext, *descriptor);
    }
    return mayHaveEndpoint(controlChannelPool.remoteEndpoints,
                           {ipDestination(ip), readField<uint16_t>(transport + 2)})
               ? sendToEndpoint(hostContext, *descriptor)
               : 0;
}
