// The two packet hooks.
//
// Nearly every packet is none of ours. So each hook first asks, from both ports in one load and a
// few comparisons, whether any rule can match, and returns when none can. Only then does it check
// the packet's lengths and try the rules one by one.

#include "host/h323nat.h"
#include "host/packet_headers.h"
#include "host/routing_rules.h"
#include "nat/connection_pools.h"
#include "nat/inbound_state.h"

// For the packets that some rule may match; kept out of the short path.
#define RARE_PATH __attribute__((noinline, cold))

RARE_PATH static void receiveSegment(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet{descriptor.ipHeader, descriptor.transportHeader,
                            descriptor.transportLength};
    TcpSegment segment;
    if (readTcp(packet, segment) && applyReceivingRules(hostContext, segment)) {
        descriptor.flags |= PACKET_CHANGED;
    }
}

RARE_PATH static void sendSegment(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet{descriptor.moduleIpHeader, descriptor.transportHeader,
                            descriptor.transportLength};
    TcpSegment segment;
    if (readTcp(packet, segment) && applySendingRules(hostContext, segment)) {
        descriptor.flags |= PACKET_CHANGED;
    }
}

RARE_PATH static void sendDatagram(HostContext* hostContext, PacketDescriptor& descriptor) {
    const PacketView packet{descriptor.moduleIpHeader, descriptor.transportHeader,
                            descriptor.transportLength};
    UdpDatagram datagram;
    if (readUdp(packet, datagram) && applyRasRule(hostContext, datagram)) {
        descriptor.flags |= PACKET_CHANGED;
    }
}

// The conditions below may be joined with `|`: reading on costs less than a branch.

static bool mayMatchReceiving(Ports ports) {
    return (ports.source == callSignallingPort) | (ports.source == t120Port) |
           (ports.destination == callSignallingPort);
}

static bool mayMatchSending(const uint8_t* ip, Ports ports) {
    const uint32_t destination = ipDestination(ip);
    return (ports.destination == callSignallingPort) |
           (ipSource(ip) == inboundMappingState.publishedAddress) |
           hasEndpoint(controlChannelPool.remoteEndpoints, {destination, ports.destination});
}

uint32_t TarvexPacketOnReceiving(HostContext* hostContext, PacketDescriptor* descriptor) {
    uint8_t* ip = descriptor->ipHeader;
    const uint32_t headerLength = ipHeaderLength(ip);
    const uint32_t totalLength = ipTotalLength(ip);
    uint8_t* transport = ip + headerLength;
    const auto transportLength = static_cast<uint16_t>(totalLength - headerLength);
    descriptor->moduleIpHeader = ip;
    descriptor->ipHeaderLength = static_cast<uint16_t>(headerLength);
    descriptor->transportHeader = transport;
    descriptor->transportLength = transportLength;
    descriptor->transportLengthCopy1 = transportLength;
    descriptor->transportLengthCopy2 = transportLength;

    if (ipProtocol(ip) == protocolTcp && totalLength >= headerLength + shortestTcpHeader &&
        mayMatchReceiving(readField<Ports>(transport))) {
        receiveSegment(hostContext, *descriptor);
    }
    return 0;
}

uint32_t TarvexPacketOnSending(HostContext* hostContext, PacketDescriptor* descriptor) {
    const uint8_t* ip = descriptor->moduleIpHeader;
    if (descriptor->transportLength < udpHeaderLength) {
        return 0;
    }
    const auto ports = readField<Ports>(descriptor->transportHeader);
    if (ipProtocol(ip) == protocolTcp) {
        if (mayMatchSending(ip, ports)) {
            sendSegment(hostContext, *descriptor);
        }
    } else if (ipProtocol(ip) == protocolUdp && ports.source == rasPort) {
        sendDatagram(hostContext, *descriptor);
    }
    return 0;
}
