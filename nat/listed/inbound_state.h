// The published private host and the one inbound call that is followed.
#pragma once

#include <cstdint>

#include "nat/hidden.h"
#include "nat/listed/stream_buffer.h"

inline constexpr uint32_t inboundBufferCapacity = 4000;

struct InboundMappingState {
    uint32_t publishedAddress;     // the published private host; 0: none
    uint32_t remoteAddress;        // the outside party of the call
    uint16_t remoteSignallingPort; // its port of the call-signalling connection
    uint16_t publishedControlPort; // the published host's H.245 port, from its Connect
    uint16_t remoteControlPort;    // the outside party's H.245 port
    uint32_t lastActivity;         // wall clock, seconds; 0 after a reset, which is idle
    uint64_t callNumber;           // for observers; 0: no call yet
    // At most inboundBufferCapacity octets of each buffer are used.
    StreamBuffer signallingFromRemote; // outside party to published host
    StreamBuffer signallingToRemote;   // published host to outside party
    StreamBuffer controlToRemote;      // H.245, published host to outside party
};

H323NAT_HIDDEN extern InboundMappingState inboundMappingState;

// Sets everything to zero.
void ResetInboundMapping();

// Publishes a private host; 0 publishes none. Keeps the state when the host is published already
// and its call is not idle.
void ActivateInboundMapping(uint32_t address);

// Starts following a call from an outside party, unless the call of another party is not idle.
// Keeps the published host, resets everything else.
void BeginInboundCall(uint32_t remoteAddress, uint16_t remotePort);

// Appends a segment to one of the state's buffers and runs the processor on every message that is
// whole now. A segment that is not empty renews lastActivity, even when it is refused because it
// would end beyond inboundBufferCapacity.
// Result: 1 when a message was rewritten in the packet, else 0.
uint32_t AppendInboundSegment(StreamBuffer& buffer, const StreamSegment& segment,
                              const MessageProcessor& processor);
