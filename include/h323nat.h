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
 * WHAT THE HOST DOES BESIDES
 *
 *   whole packets    The host puts fragments together before it calls a hook, which takes every
 *                    packet for a whole one.
 *   port 1720        The module asks for no mapping of it: the host forwards TCP connections to its
 *                    public port 1720 to the published host, at port 1720.
 *   PACKET_CHANGED   The hooks set it and never clear it: the host clears it before each call.
 *   whose address    The private address in a request for a mapping stands in a message, where a
 *                    sender can write any. The host opens a mapping only if the address is that of
 *                    the packet's sender.
 *   same answer      Messages are repeated, so the same private endpoint is asked for again. While
 *                    its mapping stands, the host gives the same answer.
 *   end of mappings  The module never says that a mapping may go. The host closes those of a
 *                    call's media with the H.245 connection under whose record they are linked,
 *                    that of an H.245 address with its connection or when none comes, and any,
 *                    RAS included, when it was not used for a while.
 *
 * WHAT MAY CHANGE
 *
 *   A host works with every module whose binary interface has the number that it was built for,
 *   the first of the version: names, arguments, numbers and layouts stay. Added may be
 *   functions, members at the end of the records that an observer is shown, and numbers and bits in
 *   them, which a host passes over when it does not know them.
 *
 * LIMITS OF THE LISTED SCOPE
 *
 *   50 signalling and 50 H.245 connections of outbound calls, one inbound call. What comes beyond
 *   passes unchanged until another was silent for more than 60 seconds.
 *   4096 octets are put together of each direction of an outbound call, 4000 of an inbound one. A
 *   longer message passes unchanged, and so does what follows it in its stream.
 *   A private caller's Setup is translated when a segment carries it alone and whole.
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

/* Calling convention of all functions here: C's own. On 32-bit Windows that is __cdecl, not the
 * __stdcall of WINAPI; 64-bit Windows has one alone. Exported names are undecorated on both. */
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
 * take its address as their first argument, which is never null; control connections keep it and
 * hand it back to HostOpenMediaMapping and HostOpenControlMapping. It must stay valid as long as
 * the host may pass packets of calls that were seen with it.
 */
typedef struct HostContext {
    uint8_t hostField000[0x13C];
    uint32_t publicAddress; /* the NAT's public IPv4 address; read only */
} HostContext;

/*
 * The host's record of one flow that it translates. The host allocates and frees it; a new one has
 * null links. The module links the records of a call's media under the record of its H.245
 * connection, newest pair first, so that the host can close them together. It never undoes a link.
 *
 * A record stays valid as long as it can be reached through HostFindInsideMapping,
 * HostFindOutsideMapping or a link below: before the host frees a record it takes it out of the
 * lists and clears the links that lead to it.
 *
 * A record that HostFindOutsideMapping answered for remote port 1720 stays valid longer, also when
 * its flow has ended: the module keeps it with the call's H.245 connection and writes its
 * controlLink whenever media of the call is linked. It keeps it until H323InitializeDLL or
 * H323SetTranslationScope is called, or until that H.245 connection was silent for more than 60
 * seconds and another call announces one. A host that cannot tell frees such records only at the
 * next start.
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
 * ports, TCP sequence and acknowledgement numbers, UDP length) to its own byte order; single octets
 * stand where the wire has them, and the payload is untouched wire data. No pointer needs
 * alignment.
 *
 * The record and the packet belong to the host and need to live only during the call.
 */
typedef struct PacketDescriptor {
    uint32_t flags; /* the hooks set PACKET_CHANGED and touch no other bit; the host clears it */
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
 *   privateAddress   the private endpoint's address, as a message names it
 *   remoteAddress    the outside party, or UNKNOWN_REMOTE_ADDRESS
 *   privatePort      P. A media mapping is a pair: map P to N and P + 1 to N + 1 (RTP and RTCP)
 *   publicPort       out: N; only the low 16 bits count. For media N is below 65535
 *   publicAddress    out: the public address that the remote party is to send to. In the listed
 *                    scope an OpenLogicalChannelAck of an outbound call gets publicPort alone:
 *                    its address becomes the one that the called party's signalling came to
 *   first, second    out: the host's records of the pair
 *   skipLinking      out: 0 when first and second are valid and the module may link them under
 *                    the record of the call's H.245 connection; anything else: it leaves them
 *                    alone. A pair that is linked already must be answered so: a second link
 *                    would break the list that it is in
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
 * again. A call in the started state starts afresh and forgets all calls and who is published; the
 * records of the start before stay allocated, so start once.
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
 * octets of a TCP or UDP payload; all else is as above.
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

/* Which addresses are translated; see H323SetTranslationScope. */
#define H323NAT_SCOPE_LISTED UINT32_C(0)
#define H323NAT_SCOPE_FULL UINT32_C(1)

/*
 * Chooses which addresses are translated. State: started, between packets; holds until the next
 * H323InitializeDLL, which goes back to the listed scope.
 *
 *   H323NAT_SCOPE_LISTED   the list of translations of outbound calls, one inbound call and the
 *                          registration of a private host. `calls` is not looked at. The default.
 *   H323NAT_SCOPE_FULL     every address of a private host in H.225.0 call signalling, RAS and
 *                          H.245, in both directions, of any protocol version, for any number of
 *                          private hosts. Only octets of addresses and ports are written, whatever
 *                          H323SetRewriteMode says. Follows `calls` calls, to 1,048,576; 0: 1,000;
 *                          three quarters of them may come from outside.
 *
 * In the full scope the host is asked for mappings by the same functions. HostOpenControlMapping
 * also serves signalling endpoints and T.120, HostOpenMediaMapping also RAS endpoints, of which one
 * port is enough; an observer's connectionAnnounced follows and tells which of them it was. The
 * remote address is UNKNOWN_REMOTE_ADDRESS, except that of a RAS endpoint, which is the gatekeeper
 * unless a group was asked. A media mapping counts as refused when its answer is the private
 * endpoint itself, or an address or port of 0. The published host's ports 1720 and 1503 are the
 * same outside, and the host forwards them; it may forward other ports to port 1720 of any private
 * host. HostFindOutsideMapping tells whose connection an answer from outside (SYN+ACK) belongs to,
 * and the first packets of a connection by a port unknown to the module. HostFindInsideMapping is
 * asked before media records are linked under those of an H.245 connection.
 *
 * All memory of the full scope is taken here, nothing later; that of an earlier call is given back,
 * and all calls that are followed are forgotten, also when the scope stays the same.
 *
 * Result: 1, or 0, and nothing changed: memory does not suffice, or an argument is none of these.
 */
H323NAT_API uint32_t H323NAT_CALL H323SetTranslationScope(uint32_t scope, uint32_t calls);

/* Octets or characters of a message; not terminated. They may be looked at during the call only. */
typedef struct H323Octets {
    const uint8_t* data; /* null when length is 0 */
    uint32_t length;
} H323Octets;

/* An IPv4 endpoint, in numbers as all of them. An address or port of 0: any, or not known. */
typedef struct H323Endpoint {
    uint32_t address;
    uint16_t port;
    uint16_t reserved; /* 0 */
} H323Endpoint;

/* What a message, a connection or an address is for. */
#define H323NAT_ROLE_SIGNALLING UINT32_C(1) /* H.225.0 call signalling, TCP */
#define H323NAT_ROLE_H245 UINT32_C(2)       /* H.245, TCP */
#define H323NAT_ROLE_RAS UINT32_C(3)        /* H.225.0 RAS, UDP */
#define H323NAT_ROLE_MEDIA UINT32_C(4)      /* RTP and RTCP, UDP; of addresses only */
#define H323NAT_ROLE_T120 UINT32_C(5)       /* T.120, TCP */

#define H323NAT_SENT UINT32_C(0)     /* by a private host */
#define H323NAT_RECEIVED UINT32_C(1) /* from outside */

/* Bits of H323ObservedMessage.flags. */
#define H323NAT_MESSAGE_REPEATED UINT32_C(1) /* its octets were sent before; not told so far */
#define H323NAT_MESSAGE_SIGNED UINT32_C(2)   /* H.235 tokens: a receiver may refuse it rewritten */
#define H323NAT_MESSAGE_NOT_UNDERSTOOD UINT32_C(4) /* it made no sense from some point on */

/*
 * A message that the module read. Told before any octet of it changes; the addressRewritten and
 * addressLeft that follow, up to the next message or the hook's return, are of this message.
 */
typedef struct H323ObservedMessage {
    uint32_t role;             /* H323NAT_ROLE_SIGNALLING, _H245 or _RAS */
    uint32_t direction;        /* H323NAT_SENT or H323NAT_RECEIVED */
    uint32_t flags;            /* H323NAT_MESSAGE_... */
    H323Endpoint inside;       /* the private end as the packet names it: of a received packet the
                                  destination before translation */
    H323Endpoint outside;      /* the other end */
    H323Octets name;           /* of the message: "setup", "openLogicalChannel" */
    H323Octets callIdentifier; /* 16 octets, or none */
    H323Octets octets;         /* the PER encoding, without TPKT and Q.931 */
    uint64_t call;             /* number of the call that it is counted to; 0: of none */
} H323ObservedMessage;

/* Why an address stays as it is: X(NAME, number, text). 7 and 8 are not told so far. */
#define H323NAT_LEFT_CAUSES(X)                                                                     \
    X(NOT_THE_SENDERS, 1, "not the sender's own address")                                          \
    X(REFUSED, 2, "the host opened no mapping")                                                    \
    X(LOW_PORT, 3, "port below 1024")                                                              \
    X(HOST_LIMIT, 4, "the private host has too many mappings")                                     \
    X(ALREADY_SENT, 5, "octets left in an earlier segment")                                        \
    X(OTHER_OCTETS, 6, "the packet holds other octets than were read")                             \
    X(FRAGMENTED, 7, "lies in a fragmented string")                                                \
    X(NOT_UNDERSTOOD, 8, "the message makes no sense further on")                                  \
    X(NOT_LISTED, 9, "the scope does not translate this place")                                    \
    X(NOT_CONFIRMED, 10, "no gatekeeper has answered yet")                                         \
    X(NO_RECORD, 11, "no record was free for it")                                                  \
    X(NO_PORT, 12, "the public port has no neighbour for RTCP")

enum {
#define H323NAT_LEFT_CAUSE(name, number, text) H323NAT_LEFT_##name = number,
    H323NAT_LEFT_CAUSES(H323NAT_LEFT_CAUSE)
#undef H323NAT_LEFT_CAUSE
        H323NAT_LEFT_BEYOND
};

/* An address of the message just told. */
typedef struct H323ObservedAddress {
    uint32_t role;     /* H323NAT_ROLE_..., 0: none */
    uint32_t offset;   /* of its 4 octets in H323ObservedMessage.octets; the 2 of the port follow */
    H323Octets path;   /* "h323-uu-pdu.h323-message-body.setup.fastStart[0]...." */
    H323Endpoint from; /* as it stood */
    H323Endpoint to;   /* as it stands now; of an address that was left the same */
    uint32_t cause;    /* left: H323NAT_LEFT_...; rewritten: 0 */
} H323ObservedAddress;

/* How a call ended. */
#define H323NAT_END_RELEASED UINT32_C(1)  /* by a ReleaseComplete */
#define H323NAT_END_CLOSED UINT32_C(2)    /* its connection was closed */
#define H323NAT_END_FORGOTTEN UINT32_C(3) /* its record was needed, or the scope changed */

typedef struct H323ObservedCall {
    uint64_t call;      /* from 1 on; no number comes twice */
    uint32_t direction; /* H323NAT_SENT: the private host calls */
    H323Endpoint inside;
    H323Endpoint outside;
    H323Octets callIdentifier; /* 16 octets, or none */
    H323Octets callingAlias; /* the first one of the Setup, characters as they stand: digits, or */
    H323Octets calledAlias;  /* an h323-ID in UTF-16, most significant octet first */
    uint32_t cause;          /* ended: the Q.850 cause of the release; 0: none was told */
    uint32_t end;            /* ended: H323NAT_END_... */
} H323ObservedCall;

/* A connection whose packets, both ways, the module wants to see. */
typedef struct H323ObservedConnection {
    uint32_t role;               /* H323NAT_ROLE_..., not _MEDIA */
    uint32_t protocol;           /* 6: TCP, 17: UDP */
    H323Endpoint inside;         /* the private end */
    H323Endpoint publicEndpoint; /* what stands for it outside, if the module knows it */
    H323Endpoint outside;        /* the other end */
    uint64_t call;               /* 0: of none */
} H323ObservedConnection;

/*
 * Functions of the host that are told what happens, in both scopes. Each may be null. They are
 * called from inside the module's functions, on the calling thread. They must not call the module
 * nor keep a pointer that they are given: records and octets may be looked at until they return.
 *
 * A connection is announced before the message that tells of it goes on: a host that picks the
 * packets for the module by a filter sets that filter up before it lets the packet pass. One by a
 * mapping is announced whenever the host was asked for the mapping, and is over once.
 */
typedef struct H323Observer {
    uint32_t size; /* octets of this record as the host knows it: sizeof(H323Observer) */
    void* context; /* given to every function */
    void(H323NAT_CALL* messageRead)(void* context, const H323ObservedMessage* message);
    void(H323NAT_CALL* addressRewritten)(void* context, const H323ObservedAddress* address);
    void(H323NAT_CALL* addressLeft)(void* context, const H323ObservedAddress* address);
    void(H323NAT_CALL* callBegan)(void* context, const H323ObservedCall* call);
    void(H323NAT_CALL* callEnded)(void* context, const H323ObservedCall* call);
    void(H323NAT_CALL* connectionAnnounced)(void* context,
                                            const H323ObservedConnection* connection);
    void(H323NAT_CALL* connectionOver)(void* context, const H323ObservedConnection* connection);
} H323Observer;

/*
 * Sets the functions that are told what happens, in place of those set before; null: none. State:
 * any, between packets. The record is copied, as far as `size` says.
 */
H323NAT_API void H323NAT_CALL H323SetObserver(const H323Observer* observer);

#ifdef __cplusplus
}
#endif
