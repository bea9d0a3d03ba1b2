// Reassembly of one direction of a TCP connection that carries TPKT messages (RFC 1006).
//
// Segments are put where their sequence number says. The message at position 0 is handed to its
// owner's processor as soon as its last octet arrived, and dropped afterwards, so that a message
// always starts at position 0.
//
// A segment that leaves a gap is held at its place until the gap is filled. A processor sees a
// message only when segments brought every octet of it.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>

#include "nat/q931.h"

inline constexpr uint32_t streamBufferCapacity = 4096;

struct StreamBuffer {
    uint32_t baseSequence;   // TCP sequence number of data[0]; 0: not known yet
    uint8_t* segmentData;    // payload of the current segment in the packet; null outside a hook
    int32_t segmentOffset;   // position in data of segmentData[0]; negative when messages before it
                             // in the same segment were dropped
    uint32_t segmentLength;  // octets at segmentData
    uint32_t messageChanged; // a processor sets it to 1 when it rewrote a message in the segment
    uint32_t heldBytes;      // octets held from position 0 on, up to the first gap
    uint32_t messageLength;  // TPKT length of the message at position 0, header included; 0 while
                             // fewer than 4 octets are held
    uint8_t data[streamBufferCapacity];
    std::bitset<streamBufferCapacity> written; // octets of data that a segment wrote
};

// A segment of a TCP stream: its payload in the host's packet, the payload's length in octets, and
// the sequence number of the payload's first octet.
struct StreamSegment {
    uint8_t* payload;
    uint32_t length;
    uint32_t sequence;
};

// How a processor ends: `done` drops the message; `framingFailure` leaves it at position 0, and it
// is tried again after the next segment.
enum class MessageOutcome { done, framingFailure };

// Looks at the message stream.data[0 .. stream.messageLength). The length is as the TPKT header
// states it and can be anything from 1 up, less than the 4 octets of that header included.
//
// Position p of data is the octet segmentData[p - segmentOffset] of the packet if that index is at
// least 0 and below segmentLength: such octets can be rewritten in the packet. The others left in
// other segments, those before it earlier, those behind it out of their order.
struct MessageProcessor {
    MessageOutcome (*run)(StreamBuffer& stream, void* owner);
    void* owner; // handed to run
};

// What placeSegment did.
enum class Placement {
    placed,     // the segment's new octets are held
    nothingNew, // the segment ends at or before data[0]; nothing changed
    refused     // it would end beyond the capacity; nothing changed but baseSequence, if that was 0
};

// Puts a segment into the buffer, of which the first `capacity` octets are used. Sets heldBytes,
// segmentOffset and segmentLength. What precedes data[0] is left out. Does not touch messageLength.
Placement placeSegment(StreamBuffer& stream, const StreamSegment& segment, uint32_t capacity);

// Reads messageLength anew from the held octets, then runs the processor on each whole message from
// position 0 on and drops those that it is done with. segmentData is `payload` meanwhile.
void processHeldMessages(StreamBuffer& stream, uint8_t* payload, const MessageProcessor& processor);

// Drops the message at position 0: heldBytes must be at least messageLength.
void consumeMessage(StreamBuffer& stream);
