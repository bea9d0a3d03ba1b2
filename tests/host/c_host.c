/* A host program in C99 that has nothing but h323nat.h: it loads the module given as its
 * argument, starts it, passes packets and checks what comes back. */
#define _POSIX_C_SOURCE 200809L

#include <stdio.h>
#include <string.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <h323nat.h>

static int failures;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition);                \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static unsigned lookups;
static HostMappingRecord callRecord;

static HostMappingRecord* H323NAT_CALL findOutside(uint32_t publicAddress, uint16_t publicPort,
                                                   uint32_t remoteAddress, uint16_t remotePort) {
    ++lookups;
    CHECK(publicAddress == UINT32_C(0xC6336407) && publicPort == 40000);
    CHECK(remoteAddress == UINT32_C(0xC0000201) && remotePort == 1503);
    return &callRecord;
}

static HostMappingRecord* H323NAT_CALL findInside(uint32_t insideAddress, uint16_t insidePort,
                                                  uint32_t remoteAddress, uint16_t remotePort) {
    (void)insideAddress;
    (void)insidePort;
    (void)remoteAddress;
    (void)remotePort;
    return NULL;
}

static uint32_t H323NAT_CALL openMedia(HostContext* context, uint32_t privateAddress,
                                       uint32_t remoteAddress, uint16_t privatePort,
                                       uint32_t* publicPort, uint32_t* publicAddress,
                                       HostMappingRecord** first, HostMappingRecord** second,
                                       uint8_t* skipLinking) {
    (void)context;
    (void)privateAddress;
    (void)remoteAddress;
    (void)privatePort;
    (void)publicPort;
    (void)publicAddress;
    (void)first;
    (void)second;
    *skipLinking = 1;
    return 0;
}

static uint8_t H323NAT_CALL openControl(HostContext* context, uint32_t privateAddress,
                                        uint32_t remoteAddress, uint16_t privatePort,
                                        uint32_t* publicPort, uint32_t* publicAddress,
                                        uint32_t* reserved) {
    (void)context;
    (void)privateAddress;
    (void)remoteAddress;
    (void)privatePort;
    (void)publicPort;
    (void)publicAddress;
    (void)reserved;
    return 1;
}

/* A TCP segment of 40 octets without payload, from 192.0.2.1 to 198.51.100.7:40000. */
static void fillSegment(uint8_t* ip, uint16_t sourcePort) {
    const uint16_t total = 40;
    const uint16_t destinationPort = 40000;
    const uint32_t source = UINT32_C(0xC0000201);
    const uint32_t destination = UINT32_C(0xC6336407);
    memset(ip, 0, 40);
    ip[0] = 0x45;
    memcpy(ip + 2, &total, 2);
    ip[9] = 6;
    memcpy(ip + 12, &source, 4);
    memcpy(ip + 16, &destination, 4);
    memcpy(ip + 20, &sourcePort, 2);
    memcpy(ip + 22, &destinationPort, 2);
    ip[32] = 0x50;
}

typedef uint32_t(H323NAT_CALL* Hook)(HostContext*, PacketDescriptor*);

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
    uint32_t(H323NAT_CALL * initialize)(const HostCallbackTable*);
    uint32_t(H323NAT_CALL * activate)(uint32_t);
    Hook receiving;
    Hook sending;
    HostCallbackTable table = {NULL, NULL, NULL, openMedia, openControl, findInside, findOutside};
    HostContext context;
    PacketDescriptor descriptor;
    PacketDescriptor before;
    uint8_t memory[41];
    uint8_t* packet = memory + 1; /* no alignment */
    void* module = argumentCount == 2 ? loadModule(arguments[1]) : NULL;
    if (module == NULL) {
        fputs("usage: c_host MODULE, a module that can be loaded\n", stderr);
        return 2;
    }
    find(module, "H323IsGatewayDLL", &isGateway);
    find(module, "H323InitializeDLL", &initialize);
    find(module, "TarvexActivateInboundMapping", &activate);
    find(module, "TarvexPacketOnReceiving", &receiving);
    find(module, "TarvexPacketOnSending", &sending);
    if (failures != 0) {
        return 1;
    }

    CHECK(isGateway() == H323NAT_IDENTIFICATION);
    CHECK(initialize(&table) == 1);
    memset(&table, 0, sizeof table); /* the module has its own copy */
    CHECK(activate(UINT32_C(0x0A000005)) == 0);

    memset(&context, 0, sizeof context);
    memset(&descriptor, 0xEE, sizeof descriptor);
    before = descriptor;
    descriptor.ipHeader = packet;
    fillSegment(packet, 1503);
    CHECK(receiving(&context, &descriptor) == 0);
    CHECK(lookups == 1);
    CHECK(descriptor.flags == before.flags);
    CHECK(descriptor.moduleIpHeader == packet);
    CHECK(descriptor.ipHeaderLength == 20);
    CHECK(descriptor.transportHeader == packet + 20);
    CHECK(descriptor.transportLength == 20);
    CHECK(descriptor.transportLengthCopy1 == 20);
    CHECK(descriptor.transportLengthCopy2 == 20);
    CHECK(memcmp(descriptor.hostField04, before.hostField04, sizeof before.hostField04) == 0);
    CHECK(memcmp(descriptor.hostField1C, before.hostField1C, sizeof before.hostField1C) == 0);
    CHECK(memcmp(descriptor.hostField2C, before.hostField2C, sizeof before.hostField2C) == 0);

    before = descriptor;
    CHECK(sending(&context, &descriptor) == 0);
    CHECK(memcmp(&descriptor, &before, sizeof before) == 0);

    if (failures == 0) {
        puts("the module answers as its contract says");
    }
    return failures == 0 ? 0 : 1;
}
