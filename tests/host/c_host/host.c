/* The host's records, its answers to the module, and its packets. */
#include <stdlib.h>
#include <string.h>

#include "tests/host/c_host/c_host.h"

const char connectHex[] =
    "0300002f08020001057e0023050240060008914a000200cb00710995bd00000000000000000000000000000000000"
    "0";
static const char release[] = "0300001608020001057e000a050500060008914a0002";
static const char acknowledgement[] = /* media at 10.0.0.5:5000 and 5001 */
    "0300001a22c0006404800f0c000a0000051388000a0000051389";

/* ---- the host's records ---------------------------------------------------------------------- */

HostContext* context;
HostMappingRecord* signalling;
HostMappingRecord* control;
Pair pair;
static uint32_t sender; /* of the packet that a hook looks at */
unsigned outsideLookups;
unsigned insideLookups;
unsigned mediaRequests;
unsigned refused;

HostMappingRecord* newRecord(void) {
    HostMappingRecord* record = malloc(sizeof *record);
    if (record == NULL) {
        abort();
    }
    memset(record, 0xEE, sizeof *record);
    record->parent = NULL;
    record->nextSibling = NULL;
    record->previousSibling = NULL;
    record->controlLink = NULL;
    record->firstMediaRecord = NULL;
    return record;
}

void endPair(void) {
    HostMappingRecord* after;
    if (pair.first == NULL) {
        return;
    }
    after = pair.second->nextSibling;
    if (pair.first->previousSibling != NULL) {
        pair.first->previousSibling->nextSibling = after;
    } else if (pair.first->parent != NULL) {
        pair.first->parent->firstMediaRecord = after;
    }
    if (after != NULL) {
        after->previousSibling = pair.first->previousSibling;
    }
    free(pair.first);
    free(pair.second);
    memset(&pair, 0, sizeof pair);
}

/* ---- the module's questions ------------------------------------------------------------------ */

static HostMappingRecord* H323NAT_CALL findOutside(uint32_t publicAddress, uint16_t publicPort,
                                                   uint32_t remoteAddress, uint16_t remotePort) {
    ++outsideLookups;
    CHECK(publicAddress == publicParty && remoteAddress == remoteParty);
    CHECK(publicPort >= 40000 && (remotePort == 1720 || remotePort == 1503));
    return publicPort == 40000 ? signalling : NULL;
}

static HostMappingRecord* H323NAT_CALL findInside(uint32_t insideAddress, uint16_t insidePort,
                                                  uint32_t remoteAddress, uint16_t remotePort) {
    ++insideLookups;
    CHECK(insideAddress == privateParty && insidePort == 35738);
    CHECK(remoteAddress == remoteParty && remotePort == 38333);
    return control;
}

static uint32_t H323NAT_CALL openMedia(HostContext* given, uint32_t privateAddress,
                                       uint32_t remoteAddress, uint16_t privatePort,
                                       uint32_t* publicPort, uint32_t* publicAddress,
                                       HostMappingRecord** first, HostMappingRecord** second,
                                       uint8_t* skipLinking) {
    (void)remoteAddress;
    ++mediaRequests;
    CHECK(given == context);
    CHECK(*first == NULL && *second == NULL && *skipLinking == 0);
    if (privateAddress != sender) {
        ++refused;
        *publicAddress = privateAddress;
        *publicPort = privatePort;
        *skipLinking = 1;
        return 1;
    }
    if (pair.first == NULL || pair.privatePort != privatePort) {
        endPair();
        pair.first = newRecord();
        pair.second = newRecord();
        pair.privatePort = privatePort;
        pair.publicPort = 40100;
    }
    *publicAddress = publicParty;
    *publicPort = pair.publicPort;
    *first = pair.first;
    *second = pair.second;
    *skipLinking = pair.first->parent != NULL;
    return 0;
}

static uint8_t H323NAT_CALL openControl(HostContext* given, uint32_t privateAddress,
                                        uint32_t remoteAddress, uint16_t privatePort,
                                        uint32_t* publicPort, uint32_t* publicAddress,
                                        uint32_t* reserved) {
    (void)given, (void)privateAddress, (void)remoteAddress, (void)privatePort;
    (void)publicPort, (void)publicAddress, (void)reserved;
    return 1;
}

/* ---- packets --------------------------------------------------------------------------------- */

size_t fromHex(const char* hex, uint8_t* octets) {
    size_t count = 0;
    unsigned octet;
    for (; sscanf(hex + 2 * count, "%2x", &octet) == 1; ++count) {
        octets[count] = (uint8_t)octet;
    }
    return count;
}

int exchange(Hook hook, const Flow* flow, uint8_t protocol, uint32_t sequence, uint8_t flags,
             const uint8_t* payload, size_t count) {
    const size_t header = protocol == 6 ? 20 : 8;
    const uint16_t total = (uint16_t)(20 + header + count);
    const uint16_t datagram = (uint16_t)(8 + count);
    uint8_t* memory = malloc(total + 1u);
    uint8_t* ip = memory + 1;
    uint8_t* transport = ip + 20;
    PacketDescriptor descriptor;
    int changed;
    if (memory == NULL) {
        abort();
    }
    memset(memory, 0, total + 1u);
    ip[0] = 0x45;
    memcpy(ip + 2, &total, 2);
    ip[9] = protocol;
    memcpy(ip + 12, &flow->source, 4);
    memcpy(ip + 16, &flow->destination, 4);
    memcpy(transport, &flow->sourcePort, 2);
    memcpy(transport + 2, &flow->destinationPort, 2);
    if (protocol == 6) {
        memcpy(transport + 4, &sequence, 4);
        transport[12] = 0x50;
        transport[13] = flags;
    } else {
        memcpy(transport + 4, &datagram, 2);
    }
    if (count > 0) {
        memcpy(transport + header, payload, count);
    }
    memset(&descriptor, 0, sizeof descriptor);
    descriptor.flags = UINT32_C(0x81);
    descriptor.ipHeader = ip;
    descriptor.moduleIpHeader = ip;
    descriptor.transportHeader = transport;
    descriptor.transportLength = (uint16_t)(total - 20);
    sender = flow->source;
    CHECK(hook(context, &descriptor) == 0);
    sender = 0;
    changed = (descriptor.flags & PACKET_CHANGED) != 0;
    CHECK((descriptor.flags & ~PACKET_CHANGED) == UINT32_C(0x81));
    CHECK(changed || count == 0 || memcmp(transport + header, payload, count) == 0);
    free(memory);
    return changed;
}

const Flow fromCalled = {UINT32_C(0xCB007109), UINT32_C(0xCB007101), 1720, 40000};
const Flow onControl = {UINT32_C(0x0A000005), UINT32_C(0xCB007109), 35738, 38333};

int sendOn(const Flow* flow, Hook hook, uint32_t* sequence, const uint8_t* payload, size_t count) {
    const int changed = exchange(hook, flow, 6, *sequence, tcpAck, payload, count);
    *sequence += (uint32_t)count;
    return changed;
}

uint32_t calledSequence;
uint32_t controlSequence;

void beginCall(void) {
    uint8_t octets[64];
    const size_t count = fromHex(connectHex, octets);
    exchange(TarvexPacketOnReceiving, &fromCalled, 6, 1, tcpSyn | tcpAck, NULL, 0);
    CHECK(sendOn(&fromCalled, TarvexPacketOnReceiving, &calledSequence, octets, count) == 0);
}

void endCall(void) {
    uint8_t octets[64];
    const size_t count = fromHex(release, octets);
    sendOn(&fromCalled, TarvexPacketOnReceiving, &calledSequence, octets, count);
}

int acknowledge(uint32_t privateAddress, uint16_t port) {
    uint8_t octets[64];
    const size_t count = fromHex(acknowledgement, octets);
    int i;
    for (i = 0; i < 4; ++i) {
        octets[13 + i] = octets[20 + i] = (uint8_t)(privateAddress >> (24 - 8 * i));
    }
    octets[17] = (uint8_t)(port >> 8);
    octets[18] = (uint8_t)port;
    return sendOn(&onControl, TarvexPacketOnSending, &controlSequence, octets, count);
}

int acknowledgeInTwoSegments(void) {
    uint8_t octets[64];
    const size_t count = fromHex(acknowledgement, octets);
    return sendOn(&onControl, TarvexPacketOnSending, &controlSequence, octets, 16) |
           sendOn(&onControl, TarvexPacketOnSending, &controlSequence, octets + 16, count - 16);
}

void start(void) {
    HostCallbackTable table = {NULL, NULL, NULL, openMedia, openControl, findInside, findOutside};
    CHECK(H323InitializeDLL(&table) == 1);
    memset(&table, 0, sizeof table); /* the module has its own copy */
    calledSequence = controlSequence = 1;
}
