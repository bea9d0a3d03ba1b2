// The two packet hooks.
//
// Nearly every packet is none of ours. So each hook first asks, from both ports in one load and a
// few comparisons, whether any rule can match, and returns when none can. Only then does it check
// the packet's lengths and try the rules one by one.

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
    if (receivedLengthsAgree(packet) && readTcp(packet, segment)) {
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
    UdpDatagram datagram;
    if (readUdp({descriptor.moduleIpHeader, descriptor.transportHeader, descriptor.transportLength},
                datagram)) {
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
    } else {
        mark(descriptor,
             readUdp(packet, datagram) && full_scope::sendDatagram(hostContext, datagram));
    }
    return 0;
}

// All may say yes to a packet that no rule takes, never no to one that a rule takes.

// `transportLength` is negative when lengths contradict each other. Whether a packet is whole, and
// of another protocol than these two, is the rare path's business.
static bool mayReceiveInFullScope(const uint8_t* ip, const uint8_t* transport,
                                  int32_t transportLength) {
    if (ipProtocol(ip) == protocolTcp) {
        return full_scope::mayBeFollowed(ipSource(ip));
    }
    if (transportLength < static_cast<int32_t>(udpHeaderLength)) {
        return false;
    }
    const auto ports = readField<Ports>(transport);
    return full_scope::mayReceiveDatagram(ports.source, ports.destination);
}

static bool maySendInFullScope(const uint8_t* ip, const uint8_t* transport,
                               uint32_t transportLength) {
    const uint8_t protocol = ipProtocol(ip);
    if (protocol == protocolTcp) {
        return transportLength >= shortestTcpHeader &&
               full_scope::maySend({ipDestination(ip), readField<Ports>(transport).destination},
                                   (transport[13] & 0x12u) == 0x12u);
    }
    return protocol == protocolUdp && transportLength >= udpHeaderLength &&
           full_scope::maySendDatagram(readField<Ports>(transport).destination);
}

static bool mayMatchReceiving(Ports ports) {
    // One comparison for both source ports; few others lie between them.
    static_assert(t120Port < callSignallingPort);
    return static_cast<uint16_t>(ports.source - t120Port) <= callSignallingPort - t120Port ||
           ports.destination == callSignallingPort;
}

static bool mayMatchSending(const uint8_t* ip, Ports ports) {
    return ports.destination == callSignallingPort ||
           (ipSource(ip) == inboundMappingState.publishedAddress &&
            ipDestination(ip) == inboundMappingState.remoteAddress) ||
           hasEndpoint(controlChannelPool.remoteEndpoints, {ipDestination(ip), ports.destination});
}

uint32_t TarvexPacketOnReceiving(HostContext* hostContext, PacketDescriptor* descriptor) {
    uint8_t* ip = descriptor->ipHeader;
    const uint32_t headerLength = ipHeaderLength(ip);
    // Negative when the two lengths contradict each other; the descriptor gets its low 16 bits.
    const auto transportLength = static_cast<int32_t>(ipTotalLength(ip) - headerLength);
    uint8_t* transport = ip + headerLength;
    descriptor->moduleIpHeader = ip;
    descriptor->ipHeaderLength = static_cast<uint16_t>(headerLength);
    descriptor->transportHeader = transport;
    descriptor->transportLength = static_cast<uint16_t>(transportLength);
    descriptor->transportLengthCopy1 = static_cast<uint16_t>(transportLength);
    descriptor->transportLengthCopy2 = static_cast<uint16_t>(transportLength);

    if (full_scope::quickLook.active) {
        return mayReceiveInFullScope(ip, transport, transportLength)
                   ? receiveInFullScope(hostContext, *descriptor)
                   : 0;
    }
    if (ipProtocol(ip) == protocolTcp &&
        transportLength >= static_cast<int32_t>(shortestTcpHeader) &&
        mayMatchReceiving(readField<Ports>(transport))) {
        return receiveSegment(hostContext, *descriptor);
    }
    return 0;
}

uint32_t TarvexPacketOnSending(HostContext* hostContext, PacketDescriptor* descriptor) {
    const uint8_t* ip = descriptor->moduleIpHeader;
    if (full_scope::quickLook.active) {
        return maySendInFullScope(ip, descriptor->transportHeader, descriptor->transportLength)
                   ? sendInFullScope(hostContext, *descriptor)
                   : 0;
    }
    if (descriptor->transportLength < udpHeaderLength) {
        return 0;
    }
    const auto ports = readField<Ports>(descriptor->transportHeader);
    const uint8_t protocol = ipProtocol(ip);
    if (protocol == protocolTcp && mayMatchSending(ip, ports)) {
        return sendSegment(hostContext, *descriptor);
    }
    if (protocol == protocolUdp && ports.source == rasPort) {
        return sendDatagram(hostContext, *descriptor);
    }
    return 0;
}
