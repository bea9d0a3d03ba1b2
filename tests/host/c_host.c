/* A host program in C99 that has nothing but h323nat.h: it loads the module given as its argument,
 * keeps and frees its records exactly as that header has it, and checks what the header promises.
 * A sanitizer sees a record that the module touches after the header gave it back. */
#define _POSIX_C_SOURCE 200809L

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN /* no sockets: their names are plain words */
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <h323nat.h>

/* Every start leaves the records of the one before allocated, as the header says. */
H323NAT_API const char* __lsan_default_suppressions(void);
const char* __lsan_default_suppressions(void) {
    return "leak:H323InitializeDLL";
}

static int failures;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition);                \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static const uint32_t remoteParty = UINT32_C(0xCB007109); /* 203.0.113.9 */
static const uint32_t publicParty = UINT32_C(0xCB007101); /* 203.0.113.1 */
static const uint32_t privateParty = UINT32_C(0x0A000005);
static const uint32_t strangeParty = UINT32_C(0x0A000063);
enum { tcpSyn = 0x02, tcpAck = 0x10 };

static const char connect[] = /* H.245 at 203.0.113.9:38333 */
    "0300002f08020001057e0023050240060008914a000200cb00710995bd00000000000000000000000000000000000"
    "0";
static const char release[] = "0300001608020001057e000a050500060008914a0002";
static const char acknowledgement[] = /* media at 10.0.0.5:5000 and 5001 */
    "0300001a22c0006404800f0c000a0000051388000a0000051389";
static const char gatekeeperRequest[] = /* RAS at 10.0.0.5:1719 */
    "00000000060008914a0002000a00000506b70000";

/* ---- the host's records ---------------------------------------------------------------------- */

typedef struct Pair {
    HostMappingRecord* first;
    HostMappingRecord* second;
    uint16_t privatePort;
    uint16_t publicPort;
} Pair;

static HostContext* context;
static HostMappingRecord* signalling;
static HostMappingRecord* control;
static Pair pair;
static uint32_t sender; /* of the packet that a hook looks at */
static unsigned outsideLookups;
static unsigned insideLookups;
static unsigned mediaRequests;
static unsigned refused;

static HostMappingRecord* newRecord(void) {
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

/* Takes the pair out of the lists before it is freed. */
static void endPair(void) {
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

typedef uint32_t(H323NAT_CALL* Hook)(HostContext*, PacketDescriptor*);
static Hook receiving;
static Hook sending;

typedef struct Flow {
    uint32_t source;
    uint32_t destination;
    uint16_t sourcePort;
    uint16_t destinationPort;
} Flow;

static size_t fromHex(const char* hex, uint8_t* octets) {
    size_t count = 0;
    unsigned octet;
    for (; sscanf(hex + 2 * count, "%2x", &octet) == 1; ++count) {
        octets[count] = (uint8_t)octet;
    }
    return count;
}

/* Runs a hook over a packet in memory of just its size, at an odd address. Result: whether the
 * payload changed, and only if the hook said so. */
static int exchange(Hook hook, const Flow* flow, uint8_t protocol, uint32_t sequence, uint8_t flags,
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

static const Flow fromCalled = {UINT32_C(0xCB007109), UINT32_C(0xCB007101), 1720, 40000};
static const Flow onControl = {UINT32_C(0x0A000005), UINT32_C(0xCB007109), 35738, 38333};

/* A segment that follows the one before of its flow. */
static int sendOn(const Flow* flow, Hook hook, uint32_t* sequence, const uint8_t* payload,
                  size_t count) {
    const int changed = exchange(hook, flow, 6, *sequence, tcpAck, payload, count);
    *sequence += (uint32_t)count;
    return changed;
}

static uint32_t calledSequence;
static uint32_t controlSequence;

static void beginCall(void) {
    uint8_t octets[64];
    const size_t count = fromHex(connect, octets);
    exchange(receiving, &fromCalled, 6, 1, tcpSyn | tcpAck, NULL, 0);
    CHECK(sendOn(&fromCalled, receiving, &calledSequence, octets, count) == 0);
}

/* The caller's acknowledgement with its media at privateAddress:port. */
static int acknowledge(uint32_t privateAddress, uint16_t port) {
    uint8_t octets[64];
    const size_t count = fromHex(acknowledgement, octets);
    int i;
    for (i = 0; i < 4; ++i) {
        octets[13 + i] = octets[20 + i] = (uint8_t)(privateAddress >> (24 - 8 * i));
    }
    octets[17] = (uint8_t)(port >> 8);
    octets[18] = (uint8_t)port;
    return sendOn(&onControl, sending, &controlSequence, octets, count);
}

/* The same, whose first address has left when the message is whole. */
static int acknowledgeInTwoSegments(void) {
    uint8_t octets[64];
    const size_t count = fromHex(acknowledgement, octets);
    return sendOn(&onControl, sending, &controlSequence, octets, 16) |
           sendOn(&onControl, sending, &controlSequence, octets + 16, count - 16);
}

/* ---- what the header says -------------------------------------------------------------------- */

static uint32_t(H323NAT_CALL* initialize)(const HostCallbackTable*);
static uint32_t(H323NAT_CALL* activate)(uint32_t);
static uint32_t(H323NAT_CALL* setScope)(uint32_t, uint32_t);
static void(H323NAT_CALL* setObserver)(const H323Observer*);

static void start(void) {
    HostCallbackTable table = {NULL, NULL, NULL, openMedia, openControl, findInside, findOutside};
    CHECK(initialize(&table) == 1);
    memset(&table, 0, sizeof table); /* the module has its own copy */
    calledSequence = controlSequence = 1;
}

static void fillsTheDescriptor(void) {
    uint8_t packet[41] = {0};
    PacketDescriptor descriptor;
    PacketDescriptor before;
    const uint16_t total = 40;
    packet[1] = 0x45;
    memcpy(packet + 3, &total, 2);
    memset(&descriptor, 0xEE, sizeof descriptor);
    before = descriptor;
    descriptor.ipHeader = packet + 1;
    CHECK(receiving(context, &descriptor) == 0);
    CHECK(descriptor.flags == before.flags);
    CHECK(descriptor.moduleIpHeader == packet + 1);
    CHECK(descriptor.ipHeaderLength == 20);
    CHECK(descriptor.transportHeader == packet + 21);
    CHECK(descriptor.transportLength == 20);
    CHECK(descriptor.transportLengthCopy1 == 20);
    CHECK(descriptor.transportLengthCopy2 == 20);
    CHECK(memcmp(descriptor.hostField04, before.hostField04, sizeof before.hostField04) == 0);
    CHECK(memcmp(descriptor.hostField1C, before.hostField1C, sizeof before.hostField1C) == 0);
    CHECK(memcmp(descriptor.hostField2C, before.hostField2C, sizeof before.hostField2C) == 0);
    before = descriptor;
    CHECK(sending(context, &descriptor) == 0);
    CHECK(memcmp(&descriptor, &before, sizeof before) == 0);
}

static void linksAndKeepsRecords(void) {
    start();
    signalling = newRecord();
    signalling->insideAddress = privateParty;
    signalling->insidePort = 50000;
    control = newRecord();
    beginCall();
    CHECK(outsideLookups > 0);

    /* The signalling connection ends. Its record is the module's to write still. */
    {
        uint8_t octets[64];
        const size_t count = fromHex(release, octets);
        sendOn(&fromCalled, receiving, &calledSequence, octets, count);
    }
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(signalling->controlLink == control);
    CHECK(control->firstMediaRecord == pair.first);
    CHECK(pair.first->parent == control && pair.second->parent == control);
    CHECK(pair.first->nextSibling == pair.second && pair.second->nextSibling == NULL);
    CHECK(pair.second->previousSibling == pair.first && pair.first->previousSibling == NULL);
    CHECK(pair.first->inherited24 == control->inherited24);

    /* The same endpoint again gets the same answer, without a second link. */
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(mediaRequests == 2 && insideLookups == 1);
    CHECK(pair.second->nextSibling == NULL);

    /* An address that is not the sender's: nothing is opened, nothing linked. */
    acknowledge(strangeParty, 5000);
    CHECK(refused == 1 && insideLookups == 1);

    /* The mapping ends, another one comes. */
    endPair();
    CHECK(control->firstMediaRecord == NULL);
    CHECK(acknowledge(privateParty, 5002) == 1);
    CHECK(control->firstMediaRecord == pair.first);

    /* The H.245 connection ends: the host closes what is linked, and clears what leads there. */
    endPair();
    signalling->controlLink = NULL;
    free(control);
    control = NULL;
    CHECK(acknowledge(privateParty, 5004) == 1); /* rewritten, and not linked */
    CHECK(pair.first->parent == NULL && signalling->controlLink == NULL);
    endPair();

    /* The next start forgets the call, and with it the record. */
    start();
    free(signalling);
    signalling = NULL;
    refused = mediaRequests = 0;
    CHECK(acknowledge(privateParty, 5000) == 0);
    CHECK(mediaRequests == 0);
}

static void keepsToItsLimits(void) {
    uint8_t octets[4200];
    const size_t count = fromHex(connect, octets);
    Flow flow = fromCalled;
    uint32_t sequence = 1;
    uint16_t i;

    /* 50 signalling connections. The host is asked for each one's record. */
    start();
    outsideLookups = 0;
    for (i = 0; i < 51; ++i) {
        flow.destinationPort = (uint16_t)(41000 + i);
        exchange(receiving, &flow, 6, 1, tcpSyn | tcpAck, NULL, 0);
    }
    CHECK(outsideLookups == 50);

    /* 50 H.245 connections, for each of which it is asked again. */
    start();
    beginCall();
    outsideLookups = 0;
    for (i = 1; i < 52; ++i) {
        octets[28] = (uint8_t)i; /* of the port */
        sendOn(&fromCalled, receiving, &calledSequence, octets, count);
    }
    CHECK(outsideLookups == 49);

    /* 4096 octets: the message behind one of 4097 is not seen any more. */
    for (i = 0; i < 2; ++i) {
        start();
        beginCall();
        memset(octets, 0, sizeof octets);
        octets[2] = 0x10;
        octets[3] = (uint8_t)i;
        sendOn(&onControl, sending, &controlSequence, octets, 4096);
        sendOn(&onControl, sending, &controlSequence, octets, i);
        mediaRequests = 0;
        acknowledge(privateParty, 5000);
        CHECK(mediaRequests == (i == 0 ? 1u : 0u));
        endPair();
    }

    /* A Setup, one octet of which comes later, is not one segment; one inbound call at a time, of
     * which 4000 octets are put together. */
    for (i = 0; i < 2; ++i) {
        const Flow caller = {remoteParty, publicParty, 50000, 1720};
        const Flow second = {remoteParty + 1, publicParty, 50000, 1720};
        uint8_t setup[64];
        const size_t length = fromHex(
            "0300003008020001057e0024050008060008914a00020000cb00710106b8000000000000000000000000"
            "000000000000",
            setup);
        start();
        CHECK(activate(privateParty) == 0);
        sequence = 1;
        exchange(receiving, &caller, 6, 0, tcpSyn, NULL, 0);
        exchange(receiving, &second, 6, 0, tcpSyn, NULL, 0);
        CHECK(exchange(receiving, &second, 6, 1, tcpAck, setup, length) == 0);
        octets[2] = 0x0F;
        octets[3] = (uint8_t)(0xA0 + i);
        sendOn(&caller, receiving, &sequence, octets, 4000);
        sendOn(&caller, receiving, &sequence, octets, i);
        CHECK(sendOn(&caller, receiving, &sequence, setup, length) == (i == 0));
    }
}

/* ---- observers and scopes -------------------------------------------------------------------- */

static unsigned told[7];
static uint32_t lastEnd;
static uint64_t callNumber;

static int place; /* what the observer's context points to */

static void H323NAT_CALL messageRead(void* given, const H323ObservedMessage* message) {
    ++told[0];
    CHECK(given == &place);
    CHECK(message->octets.data != NULL && message->name.length > 0);
    if (message->role == H323NAT_ROLE_H245) {
        CHECK(message->direction == H323NAT_SENT);
        CHECK(message->octets.length == 22 && message->octets.data[9] == 0x0A); /* unchanged yet */
        CHECK(message->inside.address == privateParty && message->outside.address == remoteParty);
    }
}

static void H323NAT_CALL addressRewritten(void* given, const H323ObservedAddress* address) {
    ++told[1];
    CHECK(given == &place && told[0] > 0);
    CHECK(address->role == H323NAT_ROLE_MEDIA && address->cause == 0 && address->path.length > 0);
    CHECK(address->from.address == privateParty && address->to.address == publicParty);
    CHECK(address->to.port == address->from.port + 35100);
    CHECK(address->offset == (address->from.port == 5000 ? 9u : 16u));
}

static void H323NAT_CALL addressLeft(void* given, const H323ObservedAddress* address) {
    ++told[2];
    CHECK(given == &place);
    CHECK(address->cause > 0 && address->cause < H323NAT_LEFT_BEYOND);
    CHECK(memcmp(&address->from, &address->to, sizeof address->from) == 0);
}

static void H323NAT_CALL callBegan(void* given, const H323ObservedCall* call) {
    ++told[3];
    CHECK(given == &place && call->call > callNumber && call->direction == H323NAT_SENT);
    CHECK(call->outside.address == remoteParty && call->outside.port == 1720);
    callNumber = call->call;
}

static void H323NAT_CALL callEnded(void* given, const H323ObservedCall* call) {
    ++told[4];
    CHECK(given == &place && call->call == callNumber);
    lastEnd = call->end;
}

static void H323NAT_CALL connectionAnnounced(void* given,
                                             const H323ObservedConnection* connection) {
    ++told[5];
    CHECK(given == &place && connection->role == H323NAT_ROLE_H245 && connection->protocol == 6);
    CHECK(connection->outside.address == remoteParty && connection->outside.port == 38333);
}

static void H323NAT_CALL connectionOver(void* given, const H323ObservedConnection* connection) {
    ++told[6];
    CHECK(given == &place && connection->outside.port == 38333);
}

static int askWithRas(uint16_t sourcePort) {
    const Flow flow = {privateParty, remoteParty, sourcePort, 1719};
    uint8_t octets[32];
    const size_t count = fromHex(gatekeeperRequest, octets);
    const int changed = exchange(sending, &flow, 17, 0, 0, octets, count);
    endPair();
    return changed;
}

static void tellsObservers(void) {
    H323Observer observer = {sizeof observer, &place,    messageRead, addressRewritten,
                             addressLeft,     callBegan, callEnded,   connectionAnnounced,
                             connectionOver};
    uint8_t octets[64];
    size_t count;
    unsigned before[7];
    unsigned i;

    setObserver(&observer);
    memset(&observer, 0xEE, sizeof observer); /* the module has its own copy */
    start();
    beginCall();
    CHECK(told[0] == 1 && told[3] == 1 && told[5] == 1);
    CHECK(acknowledge(privateParty, 5000) == 1);
    CHECK(told[0] == 2 && told[1] == 2);
    CHECK(acknowledgeInTwoSegments() == 1); /* the second address is */
    CHECK(told[0] == 3 && told[1] == 3 && told[2] == 1);
    endPair();
    count = fromHex(release, octets);
    sendOn(&fromCalled, receiving, &calledSequence, octets, count);
    CHECK(told[4] == 1 && lastEnd == H323NAT_END_RELEASED);

    /* Another scope forgets all calls, also when it stays the same. */
    exchange(receiving, &fromCalled, 6, 1, tcpSyn | tcpAck, NULL, 0);
    CHECK(told[3] == 2);
    CHECK(setScope(H323NAT_SCOPE_LISTED, 0) == 1);
    CHECK(told[4] == 2 && lastEnd == H323NAT_END_FORGOTTEN);
    CHECK(told[6] == 1);
    mediaRequests = 0;
    acknowledge(privateParty, 5000);
    CHECK(mediaRequests == 0);

    /* A record of a release that knew fewer members, one without functions, and none. */
    memcpy(before, told, sizeof told);
    for (i = 0; i < 3; ++i) {
        H323Observer other = {0, &place, NULL, NULL, NULL, NULL, NULL, NULL, NULL};
        other.size =
            i == 0 ? (uint32_t)offsetof(H323Observer, messageRead) : (uint32_t)sizeof other;
        other.messageRead = i == 0 ? messageRead : NULL;
        setObserver(i == 2 ? NULL : &other);
        start();
        beginCall();
        CHECK(acknowledge(privateParty, 5000) == 1);
        endPair();
    }
    CHECK(memcmp(before, told, sizeof told) == 0);
}

/* Only the full scope looks at RAS from any port. */
static void knowsItsScopes(void) {
    start();
    CHECK(askWithRas(1719) == 1 && askWithRas(2000) == 0);
    CHECK(setScope(2, 0) == 0 && setScope(UINT32_MAX, 0) == 0);
    CHECK(askWithRas(2000) == 0);
    CHECK(setScope(H323NAT_SCOPE_FULL, UINT32_MAX) == 0); /* more calls than there is memory for */
    CHECK(askWithRas(2000) == 0);
    CHECK(setScope(H323NAT_SCOPE_FULL, 10) == 1);
    CHECK(askWithRas(2000) == 1);
    CHECK(setScope(H323NAT_SCOPE_FULL, 0) == 1);
    CHECK(askWithRas(2000) == 1);
    CHECK(setScope(7, 0) == 0);
    CHECK(askWithRas(2000) == 1); /* nothing has changed */
    CHECK(setScope(H323NAT_SCOPE_LISTED, 0) == 1);
    CHECK(askWithRas(2000) == 0 && askWithRas(1719) == 1);
    CHECK(setScope(H323NAT_SCOPE_FULL, 10) == 1);
    start();
    CHECK(askWithRas(2000) == 0 && askWithRas(1719) == 1);
}

/* Null when the module cannot be loaded. */
static void* loadModule(const char* path) {
#if defined(_WIN32)
    return LoadLibraryA(path);
#else
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
}

/* ISO C knows no cast from an object pointer, such as dlsym gives, to a function pointer. */
static void find(void* module, const char* name, void* function) {
#if defined(_WIN32)
    const FARPROC symbol = GetProcAddress(module, name);
#else
    void* const symbol = dlsym(module, name);
#endif
    if (symbol == NULL) {
        fprintf(stderr, "%s is not exported\n", name);
        ++failures;
    }
    memcpy(function, &symbol, sizeof symbol);
}

int main(int argumentCount, char** arguments) {
    uint32_t(H323NAT_CALL * isGateway)(void);
    uint32_t(H323NAT_CALL * setRewriteMode)(uint32_t);
    void* module = argumentCount == 2 ? loadModule(arguments[1]) : NULL;
    if (module == NULL) {
        fputs("usage: c_host MODULE, a module that can be loaded\n", stderr);
        return 2;
    }
    find(module, "H323IsGatewayDLL", &isGateway);
    find(module, "H323InitializeDLL", &initialize);
    find(module, "H323SetRewriteMode", &setRewriteMode);
    find(module, "H323SetTranslationScope", &setScope);
    find(module, "H323SetObserver", &setObserver);
    find(module, "TarvexActivateInboundMapping", &activate);
    find(module, "TarvexPacketOnReceiving", &receiving);
    find(module, "TarvexPacketOnSending", &sending);
    context = calloc(1, sizeof *context);
    if (failures != 0 || context == NULL) {
        return 1;
    }
    context->publicAddress = publicParty;

    CHECK(isGateway() == H323NAT_IDENTIFICATION);
    CHECK(initialize(NULL) == 0);
    start();
    CHECK(isGateway() == H323NAT_IDENTIFICATION);
    CHECK(setRewriteMode(7) == H323NAT_REWRITE_ENCODED);
    CHECK(setRewriteMode(H323NAT_REWRITE_LOSSLESS) == H323NAT_REWRITE_LOSSLESS);
    fillsTheDescriptor();
    linksAndKeepsRecords();
    keepsToItsLimits();
    tellsObservers();
    knowsItsScopes();

    free(context);
    if (failures == 0) {
        puts("the module answers as its contract says");
    }
    return failures == 0 ? 0 : 1;
}
