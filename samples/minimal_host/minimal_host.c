/* The least that a host program does: give the module its functions, then show it every packet.
 *
 * This host translates nothing. It answers each question of the module with "no", builds one packet
 * and passes it through both hooks. */
#include <stdio.h>
#include <string.h>

#include <h323nat.h>

static uint32_t H323NAT_CALL openMediaMapping(HostContext* context, uint32_t privateAddress,
                                              uint32_t remoteAddress, uint16_t privatePort,
                                              uint32_t* publicPort, uint32_t* publicAddress,
                                              HostMappingRecord** first, HostMappingRecord** second,
                                              uint8_t* skipLinking) {
    (void)context, (void)remoteAddress, (void)first, (void)second;
    /* A host that has no mapping to give leaves the private address in the message. */
    *publicPort = privatePort;
    *publicAddress = privateAddress;
    *skipLinking = 1;
    return 0;
}

static uint8_t H323NAT_CALL openControlMapping(HostContext* context, uint32_t privateAddress,
                                               uint32_t remoteAddress, uint16_t privatePort,
                                               uint32_t* publicPort, uint32_t* publicAddress,
                                               uint32_t* reserved) {
    (void)context, (void)privateAddress, (void)remoteAddress, (void)privatePort;
    (void)publicPort, (void)publicAddress, (void)reserved;
    return 1;
}

static HostMappingRecord* H323NAT_CALL findMapping(uint32_t address, uint16_t port,
                                                   uint32_t remoteAddress, uint16_t remotePort) {
    (void)address, (void)port, (void)remoteAddress, (void)remotePort;
    return NULL;
}

static const HostCallbackTable table = {
    NULL, NULL, NULL, openMediaMapping, openControlMapping, findMapping, findMapping};

/* A SYN from 192.0.2.1:4000 to 198.51.100.7:1720, its header fields in host byte order. */
static void buildCall(uint8_t packet[40]) {
    const uint16_t totalLength = 40;
    const uint32_t addresses[2] = {UINT32_C(0xC0000201), UINT32_C(0xC6336407)};
    const uint16_t ports[2] = {4000, 1720};
    memset(packet, 0, 40);
    packet[0] = 0x45; /* IPv4, header of 20 octets */
    memcpy(packet + 2, &totalLength, sizeof totalLength);
    packet[9] = 6; /* TCP */
    memcpy(packet + 12, addresses, sizeof addresses);
    memcpy(packet + 20, ports, sizeof ports);
    packet[32] = 0x50; /* TCP header of 20 octets */
    packet[33] = 0x02; /* SYN */
}

int main(void) {
    static HostContext context;
    uint8_t packet[40];
    PacketDescriptor descriptor;

    printf("module identification: 0x%08x\n", (unsigned)H323IsGatewayDLL());
    if (H323InitializeDLL(&table) != 1) {
        fputs("minimal_host: the module did not start: out of memory\n", stderr);
        return 1;
    }
    context.publicAddress = UINT32_C(0xC6336407);       /* 198.51.100.7 */
    TarvexActivateInboundMapping(UINT32_C(0x0A000005)); /* 10.0.0.5 accepts calls */

    buildCall(packet);
    memset(&descriptor, 0, sizeof descriptor);
    descriptor.ipHeader = packet;
    TarvexPacketOnReceiving(&context, &descriptor);
    printf("received: IP header %u octets, transport part %u octets, payload %s\n",
           (unsigned)descriptor.ipHeaderLength, (unsigned)descriptor.transportLength,
           (descriptor.flags & PACKET_CHANGED) != 0 ? "changed" : "unchanged");
    descriptor.flags &= ~PACKET_CHANGED;
    TarvexPacketOnSending(&context, &descriptor);
    printf("sent: payload %s\n",
           (descriptor.flags & PACKET_CHANGED) != 0 ? "changed" : "unchanged");
    return 0;
}
