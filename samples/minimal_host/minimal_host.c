/* The least that a host program does: give the module its functions, then show it every packet.
 *
 * This host calls each function of the module once or more. It keeps no table of mappings: it
 * answers that each private port has the same number outside, and never looks one up. */
#include <stdio.h>
#include <string.h>

#include <h323nat.h>

#ifdef HOST_LOADS_MODULE
#include "loaded_module.h"
#endif

enum { udp = 17, tcp = 6, ipHeaderSize = 20, rasPort = 1719, signallingPort = 1720 };

static const uint32_t publicAddress = UINT32_C(0xC6336407);  /* 198.51.100.7 */
static const uint32_t gatekeeper = UINT32_C(0xC0000201);     /* 192.0.2.1 */
static const uint32_t privateAddress = UINT32_C(0x0A000005); /* 10.0.0.5 */

/* What a terminal asks its gatekeeper first. It names its address, 10.0.0.5:1719. */
static const uint8_t gatekeeperRequest[] = {0x00, 0x00, 0x12, 0xF3, 0x06, 0x00, 0x08,
                                            0x91, 0x4A, 0x00, 0x07, 0x00, 0x0A, 0x00,
                                            0x00, 0x05, 0x06, 0xB7, 0x00, 0x00};

static uint32_t H323NAT_CALL openMediaMapping(HostContext* context, uint32_t inside,
                                              uint32_t remote, uint16_t privatePort,
                                              uint32_t* publicPort, uint32_t* outside,
                                              HostMappingRecord** first, HostMappingRecord** second,
                                              uint8_t* skipLinking) {
    (void)inside, (void)remote, (void)first, (void)second;
    *publicPort = privatePort;
    *outside = context->publicAddress;
    *skipLinking = 1; /* there are no records to link */
    return 0;
}

static uint8_t H323NAT_CALL openControlMapping(HostContext* context, uint32_t inside,
                                               uint32_t remote, uint16_t privatePort,
                                               uint32_t* publicPort, uint32_t* outside,
                                               uint32_t* reserved) {
    (void)inside, (void)remote, (void)reserved;
    *publicPort = privatePort;
    *outside = context->publicAddress;
    return 0;
}

static HostMappingRecord* H323NAT_CALL findMapping(uint32_t address, uint16_t port, uint32_t remote,
                                                   uint16_t remotePort) {
    (void)address, (void)port, (void)remote, (void)remotePort;
    return NULL;
}

static const HostCallbackTable table = {
    NULL, NULL, NULL, openMediaMapping, openControlMapping, findMapping, findMapping};

static void H323NAT_CALL messageRead(void* context, const H323ObservedMessage* message) {
    (void)context;
    printf("  read %.*s\n", (int)message->name.length, (const char*)message->name.data);
}

static void H323NAT_CALL addressRewritten(void* context, const H323ObservedAddress* address) {
    (void)context;
    printf("  rewritten %.*s to %08x:%u\n", (int)address->path.length,
           (const char*)address->path.data, (unsigned)address->to.address,
           (unsigned)address->to.port);
}

/* An IPv4 packet with its payload, header fields in host byte order. Returns the octets behind the
 * IP header. */
static uint16_t buildPacket(uint8_t packet[64], uint8_t protocol, const uint32_t addresses[2],
                            const uint16_t ports[2], const uint8_t* payload, size_t size) {
    const size_t headerSize = protocol == tcp ? 20 : 8;
    const uint16_t transportLength = (uint16_t)(headerSize + size);
    const uint16_t totalLength = (uint16_t)(ipHeaderSize + transportLength);
    uint8_t* transport = packet + ipHeaderSize;
    memset(packet, 0, 64);
    packet[0] = 0x45; /* IPv4, header of 20 octets */
    memcpy(packet + 2, &totalLength, sizeof totalLength);
    packet[9] = protocol;
    memcpy(packet + 12, addresses, 2 * sizeof addresses[0]);
    memcpy(transport, ports, 2 * sizeof ports[0]);
    if (protocol == tcp) {
        transport[12] = 0x50; /* header of 20 octets */
        transport[13] = 0x02; /* SYN */
    } else {
        memcpy(transport + 4, &transportLength, sizeof transportLength);
    }
    if (size != 0) {
        memcpy(transport + headerSize, payload, size);
    }
    return transportLength;
}

static const char* payloadState(const PacketDescriptor* descriptor) {
    return (descriptor->flags & PACKET_CHANGED) != 0 ? "changed" : "unchanged";
}

/* A call from outside begins; a private terminal looks for its gatekeeper. */
static void showPackets(HostContext* context) {
    const uint32_t inbound[2] = {gatekeeper, publicAddress};
    const uint32_t outbound[2] = {privateAddress, gatekeeper};
    const uint16_t callPorts[2] = {4000, signallingPort};
    const uint16_t rasPorts[2] = {rasPort, rasPort};
    uint8_t packet[64];
    PacketDescriptor descriptor;

    memset(&descriptor, 0, sizeof descriptor);
    buildPacket(packet, tcp, inbound, callPorts, NULL, 0);
    descriptor.ipHeader = packet;
    TarvexPacketOnReceiving(context, &descriptor);
    printf("  received: payload %s\n", payloadState(&descriptor));

    memset(&descriptor, 0, sizeof descriptor);
    descriptor.transportLength =
        buildPacket(packet, udp, outbound, rasPorts, gatekeeperRequest, sizeof gatekeeperRequest);
    descriptor.moduleIpHeader = packet;
    descriptor.transportHeader = packet + ipHeaderSize;
    TarvexPacketOnSending(context, &descriptor);
    /* A host that sends packets computes the checksum of a changed one anew. */
    printf("  sent: payload %s\n", payloadState(&descriptor));
}

int main(int argumentCount, char** arguments) {
    static HostContext context;
    H323Observer observer;
#ifdef HOST_LOADS_MODULE
    if (argumentCount != 2) {
        fputs("usage: loading_host MODULE, the file of the module\n", stderr);
        return 1;
    }
    if (!loadModule(arguments[1])) {
        return 1;
    }
#else
    (void)argumentCount, (void)arguments;
#endif

    printf("module identification: 0x%08x\n", (unsigned)H323IsGatewayDLL());
    if (H323InitializeDLL(&table) != 1) {
        fputs("minimal_host: the module did not start: out of memory\n", stderr);
        return 1;
    }
    memset(&observer, 0, sizeof observer);
    observer.size = sizeof observer;
    observer.messageRead = messageRead;
    observer.addressRewritten = addressRewritten;
    H323SetObserver(&observer);
    context.publicAddress = publicAddress;
    TarvexActivateInboundMapping(privateAddress); /* 10.0.0.5 accepts calls */

    printf("listed scope, rewrite mode %u\n",
           (unsigned)H323SetRewriteMode(H323NAT_REWRITE_LOSSLESS));
    showPackets(&context);
    if (H323SetTranslationScope(H323NAT_SCOPE_FULL, 100) != 1) {
        fputs("minimal_host: no full scope: out of memory\n", stderr);
        return 1;
    }
    puts("full scope");
    showPackets(&context);
    return 0;
}
