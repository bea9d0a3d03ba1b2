#include "host/packet_headers.h"

bool receivedLengthsAgree(const PacketView& packet) {
    const uint32_t headerLength = ipHeaderLength(packet.ip);
    return headerLength >= shortestIpHeader &&
           headerLength + packet.transportLength <= ipTotalLength(packet.ip);
}

bool readTcp(const PacketView& packet, TcpSegment& segment) {
    if (packet.transportLength < shortestTcpHeader) {
        return false;
    }
    uint8_t* tcp = packet.transport;
    const uint32_t headerLength = (tcp[12] >> 2) & 0x3Cu;
    if (headerLength < shortestTcpHeader || headerLength > packet.transportLength) {
        return false;
    }
    const auto ports = readField<Ports>(tcp);
    segment.flow = {ipSource(packet.ip), ipDestination(packet.ip), ports.source, ports.destination};
    segment.sequence = readField<uint32_t>(tcp + 4);
    segment.acknowledgement = readField<uint32_t>(tcp + 8);
    segment.fin = (tcp[13] & 0x01u) != 0;
    segment.syn = (tcp[13] & 0x02u) != 0;
    segment.rst = (tcp[13] & 0x04u) != 0;
    segment.ack = (tcp[13] & 0x10u) != 0;
    segment.payload = tcp + headerLength;
    segment.length = packet.transportLength - headerLength;
    return true;
}

bool readUdp(const PacketView& packet, UdpDatagram& datagram) {
    if (packet.transportLength < udpHeaderLength) {
        return false;
    }
    uint8_t* udp = packet.transport;
    const uint32_t datagramLength = readField<uint16_t>(udp + 4);
    if (datagramLength < udpHeaderLength || datagramLength > packet.transportLength) {
        return false;
    }
    const auto ports = readField<Ports>(udp);
    datagram.flow = {ipSource(packet.ip), ipDestination(packet.ip), ports.source,
                     ports.destination};
    datagram.payload = udp + udpHeaderLength;
    datagram.length = datagramLength - udpHeaderLength;
    return true;
}
