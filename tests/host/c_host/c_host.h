/* What the parts of the host in C share: its records, and the packets that it shows the module. */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <h323nat.h>

extern int failures;

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
enum { tcpSyn = 0x02, tcpAck = 0x10 };

typedef struct Pair {
    HostMappingRecord* first;
    HostMappingRecord* second;
    uint16_t privatePort;
    uint16_t publicPort;
} Pair;

/* The host's records, and how often it was asked for them. */
extern HostContext* context;
extern HostMappingRecord* signalling;
extern HostMappingRecord* control;
extern Pair pair;
extern unsigned outsideLookups;
extern unsigned insideLookups;
extern unsigned mediaRequests;
extern unsigned refused;

HostMappingRecord* newRecord(void);

/* Takes the pair out of the lists before it is freed. */
void endPair(void);

typedef uint32_t(H323NAT_CALL* Hook)(HostContext*, PacketDescriptor*);

typedef struct Flow {
    uint32_t source;
    uint32_t destination;
    uint16_t sourcePort;
    uint16_t destinationPort;
} Flow;

extern const Flow fromCalled; /* of a call of the private host */
extern const Flow onControl;
extern uint32_t calledSequence;
extern uint32_t controlSequence;

size_t fromHex(const char* hex, uint8_t* octets);

/* Runs a hook over a packet in memory of just its size, at an odd address. Result: whether the
 * payload changed, and only if the hook said so. */
int exchange(Hook hook, const Flow* flow, uint8_t protocol, uint32_t sequence, uint8_t flags,
             const uint8_t* payload, size_t count);

/* A segment that follows the one before of its flow. */
int sendOn(const Flow* flow, Hook hook, uint32_t* sequence, const uint8_t* payload, size_t count);

/* Starts the module afresh, with this host's functions. */
void start(void);

/* The called party's Connect, its H.245 at 203.0.113.9:38333, and its release. */
extern const char connectHex[];
void beginCall(void);
void endCall(void);

/* The caller's acknowledgement with its media at privateAddress:port. */
int acknowledge(uint32_t privateAddress, uint16_t port);

/* The same, whose first address has left when the message is whole. */
int acknowledgeInTwoSegments(void);

/* observers.c: what the module tells, and that it tells it only to whom it should. */
void tellsObservers(void);
