// One direction of a followed TCP connection: octets in the order of their sequence numbers, cut
// into TPKT packets (RFC 1006).
//
// What comes whole in a packet is looked at where it lies. Only octets of a message that is not
// whole yet are copied, into blocks that all streams share, and a message that came in pieces is
// put together in a scratch area when its last octet is there.
//
// A change of octets is remembered as long as there is room: a segment that is sent again must
// carry the same octets as the first time.
#pragma once

#include "nat/full/pool.h"
#include "nat/q931.h"

namespace full_scope {

inline constexpr size_t blockOctets = 1000;
inline constexpr size_t longestMessage = 65535; // of a TPKT packet, its header included
inline constexpr uint32_t editsOfStream = 128;  // remembered; 40 fast-start channels
inline constexpr size_t endpointSize = 6;       // octets of an address and its port

// Octets that wait for the rest of their message. Blocks of a stream are in order, and no octet is
// in two of them.
struct HeldBlock {
    Index next;
    uint32_t sequence; // of data[0]
    uint32_t length;
    uint8_t data[blockOctets];
};

// An endpoint that was written over another one.
struct Edit {
    Index next;
    uint32_t sequence; // of its first octet
    uint8_t before[endpointSize];
    uint8_t after[endpointSize];
};

struct Stream {
    uint32_t message; // sequence number of the first octet of the next message
    uint32_t end;     // behind the last octet that was seen
    Index firstBlock; // of what is held
    Index newestEdit;
    uint16_t blocks;
    uint16_t edits;
    bool begun;    // message and end are known
    bool framed;   // a TPKT packet began at its first octet
    bool finished; // its FIN was seen
    bool lost;     // no message is looked for any more
};

struct StreamPools {
    Pool<HeldBlock> blocks;
    Pool<Edit> edits;
    uint8_t* scratch; // longestMessage octets
};

// The payload of a segment, and the sequence number of its first octet.
struct Segment {
    uint8_t* payload;
    size_t length;
    uint32_t sequence;
};

// Octets that a packet brought and that were not held yet, by sequence number.
struct FreshRange {
    uint32_t first;
    uint32_t behind;
};

// What left in an earlier packet and comes again must stay as it left: its receiver may have kept
// any part of it.
struct FreshRanges {
    FreshRange ranges[8]; // of more than these it is not known
    uint32_t count;
};

// A whole message with its TPKT header. Octet i of it is payload[start + i] of the packet; it left
// in an earlier packet when start + i is negative, or behind the payload where the packet fills a
// gap.
struct StreamMessage {
    const uint8_t* octets;
    size_t length;
    uint8_t* payload;
    ptrdiff_t start;
    size_t payloadLength;
    uint32_t sequence;        // of octets[0]
    const FreshRanges* fresh; // null: all that the packet holds of the message
};

// Whether octets of a message leave with this packet for the first time, so that they can be
// changed.
bool leavesNow(const StreamMessage& message, size_t offset, size_t count);

// Looks at one message. May write endpoints with writeEndpoint and nothing else.
struct MessageReader {
    void (*read)(const StreamMessage& message, void* owner);
    void* owner;
};

enum class StreamState {
    followed,
    foreign, // what came is no TPKT: none of ours
    lost     // more is missing, or to be held, than there is room for: what was written before is
             // still repeated, nothing further is read
};

// Starts a stream whose first octet has this sequence number.
void beginStream(Stream& stream, uint32_t firstSequence);

// Takes a segment: writes again what was written into its octets before, and runs the reader on
// every message that is whole now, in order. `rewritten` is set when octets of the packet changed.
StreamState takeSegment(Stream& stream, StreamPools& pools, const Segment& segment,
                        const MessageReader& reader, bool& rewritten);

// Writes six octets of an address and port over octet `offset` of a message and remembers it.
// leavesNow must hold for all six.
void writeEndpoint(Stream& stream, StreamPools& pools, const StreamMessage& message, size_t offset,
                   const uint8_t* octets);

// Forgets what was written.
void dropEdits(Stream& stream, StreamPools& pools);

// Gives everything back that the stream holds.
void endStream(Stream& stream, StreamPools& pools);

// Whether the sequence number of a RST or FIN can be the stream's own: from what it sent last up to
// a window behind it (RFC 5961 3.2 wants it exact; losses may have kept a part from us).
bool inWindow(const Stream& stream, uint32_t sequence);

} // namespace full_scope
