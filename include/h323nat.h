/*
 * h323nat: the contract between a host program that does IPv4 NAT and this module.
 *
 * Plain C; compiles as C99 and as C++, and needs no other header of the project.
 *
 * THE MODULE'S LIFE
 *
 *   loaded    The module is mapped into the process. Only H323IsGatewayDLL and H323InitializeDLL
 *             may be called.
 *   started   H323InitializeDLL returned 1. Every function may be called.
 *   failed    H323InitializeDLL returned 0. As loaded; the host may try H323InitializeDLL again.
 *
 * Nothing is torn down. The module keeps no thread, timer, socket or file; its 100 connection
 * records live until the host unloads it.
 *
 * THREADS
 *
 * The module takes no lock. Call its functions one at a time, from one thread or under one lock of
 * the host. It calls the host's functions only from inside these calls, on the calling thread. Such
 * a host function must not call the module.
 *
 * NUMBERS
 *
 * An IPv4 address a.b.c.d is the 32-bit number a * 2^24 + b * 2^16 + c * 2^8 + d, a port a 16-bit
 * number, both in the byte order of the host's processor. Lengths are octets. Times are seconds of
 * the wall clock; the module reads that clock itself.
 *
 * RECORDS
 *
 * PacketDescriptor, HostMappingRecord and HostContext belong to the host. They are packed: no
 * padding anywhere, pointers of the process's own size at any address. The host may make its
 * records longer; the module touches only the named members. Octet offsets of the members, on hosts
 * with 4-octet and with 8-octet pointers:
 *
 *   PacketDescriptor           4-octet   8-octet      HostMappingRecord     4-octet   8-octet
 *     flags                      0x00      0x00         insideAddress         0x1E      0x1E
 *     ipHeader                   0x18      0x18         insidePort            0x22      0x22
 *     moduleIpHeader             0x20      0x24         inherited24           0x24      0x24
 *     ipHeaderLength             0x24      0x2C         inherited28           0x28      0x28
 *     transportHeader            0x26      0x2E         inherited2A           0x2A      0x2A
 *     transportLength            0x2A      0x36         parent                0x44      0x44
 *     transportLengthCopy1       0x36      0x42         nextSibling           0x48      0x4C
 *     transportLengthCopy2       0x38      0x44         previousSibling       0x4C      0x54
 *   HostContext                                         controlLink           0x64      0x70
 *     publicAddress             0x13C     0x13C         firstMediaRecord      0x68      0x78
 */
#pragma once

#include <stdint.h>

/* Calling convention of the module's functions and of the host's: C's own, also on Windows. */
#if defined(_WIN32)
#define H323NAT_CALL __cdecl
#define H323NAT_API
#else
#define H323NAT_CALL
#define H323NAT_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What H323IsGatewayDLL answers. */
#define H323NAT_IDENTIFICATION UINT32_C(0x01020304)

/* Bit of PacketDescriptor.flags: a hook rewrote octets of the packet's payload. */
#define PACKET_CHANGED UINT32_C(0x200)

/* 1.1.1.1, the remote address of a mapping whose remote party is not known yet. The host should
 * open it to any remote party. */
#define UNKNOWN_REMOTE_ADDRESS UINT32_C(0x01010101)

#pragma pack(push, 1)

/*
 * The host's record of the network interface or translation that a packet belongs to. The hooks
 * take its address as their first argument; control connections keep it and hand it back to
 * HostOpenMediaMapping and HostOpenControlMapping. It must stay valid as long as the host may pass
 * packets of calls that were seen with it.
 */
typedef struct HostContext {
    uint8_t hostField000[0x13C];
    uint32_t publicAddress; /* the NAT's public IPv4 address; read only */
} HostContext;

/*
 * The host's record of one flow that it translates. The host allocates and frees it, and keeps it
 * valid as long as it can be reached through HostFindInsideMapping, HostFindOutsideMapping or a
 * link below. The module links the records of a call's media under the record of its H.245
 * connection, newest pair first, so that the host can close them together. It never undoes a link:
 * before the host frees a record it takes it out of the lists and clears the links that lead to it.
 */
typedef struct HostMappingRecord {
    uint8_t hostField00[0x1E];
    uint32_t insideAddress; /* private address of the flow; read only */
    uint16_t insidePort;    /* private port of the flow; read only */
    uint32_t inherited24;   /* these three are copied from the H.245 connection's record */
    uint16_t inherited28;   /* into each media record that is linked under it;           */
    uint32_t inherited2A;   /* what they mean is the host's business                     */
    uint8_t hostField2E[22];
    struct HostMappingRecord* parent;      /* media record: its H.245 connection's record */
    struct HostMappingRecord* nextSibling; /* media record: next in the parent's list, or null */
    struct HostMappingRecord* previousSibling; /* media record: previous, null for the first */
    uint8_t hostField50[20];
    struct HostMappingRecord* controlLink;      /* call-signalling or T.120 record: the record of
                                                   the call's H.245 connection, or null */
    struct HostMappingRecord* firstMediaRecord; /* H.245 record: head of its media records */
} HostMappingRecord;

/*
 * One packet on its way through a hook. The IP header is IPv4 without link-layer header. The host
 * has converted the headers' 16- and 32-bit fields (IP total length and addresses; TCP or UDP
 * ports, TCP sequence number, UDP length) to its own byte order; single octets stand where the wire
 * has them, and the payload is untouched wire data. No pointer needs alignment.
 *
 * The record and the packet belong to the host and need to live only during the call.
 */
typedef struct PacketDescriptor {
    uint32_t flags; /* the hooks set PACKET_CHANGED and touch no other bit */
    uint8_t hostField04[20];
    uint8_t* ipHeader; /* receiving: the host sets it to the start of the IP header */
    uint8_t hostField1C[4];
    uint8_t* moduleIpHeader;  /* sending: set by the host; receiving: the hook copies ipHeader */
    uint16_t ipHeaderLength;  /* receiving: written by the hook */
    uint8_t* transportHeader; /* sending: set by the host; receiving: written by the hook */
    uint16_t transportLength; /* TCP or UDP header and payload together; as transportHeader */
    uint8_t hostField2C[10];
    uint16_t transportLengthCopy1; /* receiving: the hook writes transportLength here too */
    uint16_t transportLengthCopy2; /* and here */
} PacketDescriptor;

#pragma pack(pop)

/* Slots 0 to 2 of the table: reserved, never called, may be null. */
typedef void(H323NAT_CALL* HostReservedFunction)(void);

/*
 * Opens a UDP mapping for media, or for RAS.
 *
 *   hostContext      as the hook got it
 *   privateAddress   the private endpoint's address
 *   remoteAddress    the outside party, or UNKNOWN_REMOTE_ADDRESS
 *   privatePort      P. A media mapping is a pair: map P to N and P + 1 to N + 1 (RTP and RTCP)
 *   publicPort       out: N; only the low 16 bits count. For media N is below 65535
 *   publicAddress    out: the public address that the remote party is to send to
 *   first, second    out: the host's records of the pair
 *   skipLinking      out: 0 when first and second are valid and the module may link them under the
 *                    record of the call's H.245 connection; anything else: it leaves them alone
 *
 * When the host is called, publicPort and publicAddress are 0, or the host's answer for the channel
 * before in the same message; first and second are null and skipLinking is 0. The module writes
 * publicPort and publicAddress into the message whatever the host answered, and does not examine
 * the result: a host that cannot open the mapping writes the values that the message shall carry,
 * and sets skipLinking unless it sets first and second.
 */
typedef uint32_t(H323NAT_CALL* HostOpenMediaMappingFunction)(
    HostContext* hostContext, uint32_t privateAddress, uint32_t remoteAddress, uint16_t privatePort,
    uint32_t* publicPort, uint32_t* publicAddress, HostMappingRecord** first,
    HostMappingRecord** second, uint8_t* skipLinking);

/*
 * Opens a TCP mapping for the H.245 address that the published host announces.
 *
 *   hostContext      as the hook got it
 *   privateAddress   the published host
 *   remoteAddress    the outside party of the inbound call
 *   privatePort      the published host's H.245 port
 *   publicPort       out: the mapping's public port; only the low 16 bits count
 *   publicAddress    out: the mapping's public address
 *   reserved         out: not read
 *
 * Result: 0 when the mapping is open and the out values are valid. Anything else: the message
 * passes unchanged.
 */
typedef uint8_t(H323NAT_CALL* HostOpenControlMappingFunction)(
    HostContext* hostContext, uint32_t privateAddress, uint32_t remoteAddress, uint16_t privatePort,
    uint32_t* publicPort, uint32_t* publicAddress, uint32_t* reserved);

/*
 * Finds the host's record of a TCP flow by how the private host sends it. Result: the record, or
 * null when the host translates no such flow.
 */
typedef HostMappingRecord*(H323NAT_CALL* HostFindInsideMappingFunction)(uint32_t insideAddress,
                                                                        uint16_t insidePort,
                                                                        uint32_t remoteAddress,
                                                                        uint16_t remotePort);

/*
 * Finds the host's record of a TCP flow by how it arrives from outside. Result as above.
 */
typedef HostMappingRecord*(H323NAT_CALL* HostFindOutsideMappingFunction)(uint32_t publicAddress,
                                                                         uint16_t publicPort,
                                                                         uint32_t remoteAddress,
                                                                         uint16_t remotePort);

/*
 * The host's functions. Slots 3 to 6 must not be null. A port argument fills a whole 32-bit slot on
 * 32-bit hosts; only its low 16 bits count.
 */
typedef struct HostCallbackTable {
    HostReservedFunction HostReserved0;
    HostReservedFunction HostReserved1;
    HostReservedFunction HostReserved2;
    HostOpenMediaMappingFunction HostOpenMediaMapping;
    HostOpenControlMappingFunction HostOpenControlMapping;
    HostFindInsideMappingFunction HostFindInsideMapping;
    HostFindOutsideMappingFunction HostFindOutsideMapping;
} HostCallbackTable;

/*
 * Tells this module from others. May be called in any state, also before start-up.
 * Result: always H323NAT_IDENTIFICATION.
 */
H323NAT_API uint32_t H323NAT_CALL H323IsGatewayDLL(void);

/*
 * Starts the module: allocates the connection records, clears the state of inbound calls and copies
 * the table. The table may go away when the call returns.
 *
 * Result: 1 when the module is started. 0 when memory was short or table is null; the host may call
 * again. A call in the started state starts afresh and forgets all calls; the records of the start
 * before stay allocated, so start once.
 */
H323NAT_API uint32_t H323NAT_CALL H323InitializeDLL(const HostCallbackTable* table);

/*
 * Names the private host that accepts calls from outside; 0 for none. State: started.
 *
 * Naming the same host again keeps the inbound call being followed, if its last traffic is at most
 * 60 seconds old. Naming another host, or none, forgets that call. A host may therefore repeat the
 * call at intervals.
 *
 * Result: always 0.
 */
H323NAT_API uint32_t H323NAT_CALL TarvexActivateInboundMapping(uint32_t publishedAddress);

/*
 * Looks at a packet that arrived from outside, before the host translates it. State: started. Call
 * it for every such packet, whatever its protocol.
 *
 * The host sets descriptor->ipHeader; as many octets as the IP header's total length says must be
 * readable, and never less than 20. The hook fills moduleIpHeader, ipHeaderLength, transportHeader,
 * transportLength and its two copies for every packet. It may rewrite octets of a TCP payload in
 * place; it then sets PACKET_CHANGED, and the host computes the TCP checksum anew. No length,
 * sequence number or header octet ever changes. A packet with contradictory lengths passes as it
 * is.
 *
 * Result: always 0.
 */
H323NAT_API uint32_t H323NAT_CALL TarvexPacketOnReceiving(HostContext* hostContext,
                                                          PacketDescriptor* descriptor);

/*
 * Looks at a packet that a private host sent out, before the host translates it. State: started.
 * Call it for every such packet, whatever its protocol.
 *
 * The host sets descriptor->moduleIpHeader, transportHeader and transportLength. The IP header's
 * 20 octets and transportLength octets at transportHeader must be readable. The hook may rewrite
 * octets of a TCP or UDP payload in place; it then sets PACKET_CHANGED, and the host computes the
 * TCP or UDP checksum anew. No length, sequence number or header octet ever changes. A packet with
 * contradictory lengths passes as it is.
 *
 * Result: always 0.
 */
H323NAT_API uint32_t H323NAT_CALL TarvexPacketOnSending(HostContext* hostContext,
                                                        PacketDescriptor* descriptor);

/* How a changed message goes back into its packet; see H323SetRewriteMode. */
#define H323NAT_REWRITE_ENCODED UINT32_C(0)
#define H323NAT_REWRITE_LOSSLESS UINT32_C(1)

/*
 * Chooses how changed messages are written. State: any, between packets; holds for the process.
 *
 *   H323NAT_REWRITE_ENCODED   the whole message is encoded again over its octets. Extension
 *                             additions of newer protocol versions are lost. The default.
 *   H323NAT_REWRITE_LOSSLESS  only the octets of the changed addresses and ports are written, and
 *                             messages of newer versions decode as far as the rules need them
 *
 * What is changed, and what the host is asked for, is the same in both.
 *
 * Result: the mode in force. Any other value changes nothing.
 */
H323NAT_API uint32_t H323NAT_CALL H323SetRewriteMode(uint32_t mode);

#ifdef __cplusplus
}
#endif
