// The TCP connections of outbound calls that the module follows: two pools of fixed size, one for
// call signalling, one for H.245.
//
// Each record is on exactly one of its pool's two lists, free or active. New records come to the
// head of the active list, and every lookup answers the first match from the head.
#pragma once

#include <cstddef>
#include <cstdint>

#include "include/h323nat.h"
#include "nat/endpoint_index.h"
#include "nat/flow_key.h"
#include "nat/hidden.h"
#include "nat/listed/stream_buffer.h"

inline constexpr size_t poolSize = 50;

// Link of a circular list. A list's head is a link of its own; it points to itself when the list is
// empty.
struct ListLink {
    ListLink* next;
    ListLink* previous;
};

// One outbound call's H.245 connection. The stream is the direction that the private host sends.
struct ControlChannelConnection : ListLink {
    FlowKey insideFlow;                // as the private host sends it
    uint32_t flowKnown;                // 1 once insideFlow is set
    EndpointKey remoteEndpoint;        // set through setRemoteEndpoint only
    uint32_t lastActivity;             // wall clock, seconds
    HostContext* hostContext;          // of the newest segment
    HostMappingRecord* callHostRecord; // host's record of the call-signalling connection, or null
    uint32_t publicAddress;            // the NAT's
    uint64_t callNumber;               // for observers
    StreamBuffer stream;
};

// One outbound call's call-signalling connection. The stream is the direction from the called
// party.
struct CallSignalConnection : ListLink {
    FlowKey outsideFlow; // as received: called party to public address
    FlowKey insideFlow;  // as the private caller sends it; source 0 when the host had no record
    // Not cleared when that record is given up or becomes another call's.
    ControlChannelConnection* controlChannel;
    uint32_t lastActivity; // wall clock, seconds
    uint32_t lastMessage;  // h323-message-body alternative of the last message looked at
    uint64_t callNumber;   // for observers
    StreamBuffer stream;
};

struct RecordLists {
    ListLink freeList{&freeList, &freeList};
    ListLink activeList{&activeList, &activeList};
};

struct CallSignalPool : RecordLists {};

struct ControlChannelPool : RecordLists {
    EndpointIndex remoteEndpoints{}; // of the active records
};

extern CallSignalPool callSignalPool;
H323NAT_HIDDEN extern ControlChannelPool controlChannelPool;

// Makes both lists empty and allocates the records, all zero, onto the free list. Result: 0, or -12
// when an allocation failed; the records made so far are then released again. Records of an earlier
// build are not reachable any more.
int32_t buildPool(CallSignalPool& pool);
int32_t buildPool(ControlChannelPool& pool);

// Moves the most recently freed record to the head of the active list. Null when none is free. All
// members of the record are zero.
CallSignalConnection* takeRecord(CallSignalPool& pool);
ControlChannelConnection* takeRecord(ControlChannelPool& pool);

// Clears an active record and puts it at the head of the free list.
void releaseRecord(CallSignalPool& pool, CallSignalConnection& record);
void releaseRecord(ControlChannelPool& pool, ControlChannelConnection& record);

// Releases every active record.
void releaseAllRecords(CallSignalPool& pool);
void releaseAllRecords(ControlChannelPool& pool);

// Releases every active record that has been idle for more than 60 seconds. Runs right before a
// record is taken, never else.
void expireRecords(CallSignalPool& pool);
void expireRecords(ControlChannelPool& pool);

// Sets the key by which findByRemoteEndpoint finds an active record of controlChannelPool.
// Assigning the member alone would leave the index behind.
void setRemoteEndpoint(ControlChannelConnection& record, const EndpointKey& remoteEndpoint);

// Lookups among the active records of the two global pools. Null when none matches.
CallSignalConnection* findByOutsideFlow(const FlowKey& outsideFlow);
CallSignalConnection* findByInsideFlow(const FlowKey& insideFlow);
CallSignalConnection* findByCalledParty(uint32_t calledPartyAddress);
ControlChannelConnection* findByRemoteEndpoint(const EndpointKey& remoteEndpoint);

// The same answer as findByRemoteEndpoint, at once when it is null.
inline ControlChannelConnection* findFollowedEndpoint(const EndpointKey& remoteEndpoint) {
    if (!hasEndpoint(controlChannelPool.remoteEndpoints, remoteEndpoint)) {
        return nullptr;
    }
    return findByRemoteEndpoint(remoteEndpoint);
}

// Appends a segment to a record's stream and runs the processor on every message that is whole now.
// Renews lastActivity unless the segment is empty or refused. A segment that brings nothing new
// still renews it on a call-signalling record; it leaves a control record alone.
// Result: 0, or -1 when the segment does not fit behind the held octets or into the buffer.
int32_t appendSegment(CallSignalConnection& record, const StreamSegment& segment,
                      const MessageProcessor& processor);
int32_t appendSegment(ControlChannelConnection& record, const StreamSegment& segment,
                      const MessageProcessor& processor);
