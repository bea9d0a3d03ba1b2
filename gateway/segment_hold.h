#pragma once

#include "gateway/endpoint.h"
#include "gateway/ipv4_packet.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <span>
#include <unordered_map>
#include <vector>

namespace gateway {

constexpr size_t tpktHeader = 4; // octets

// Whether octets begin as a TPKT packet with content does (RFC 1006), as far as there are any:
// version 3, reserved 0, length.
bool mayBeTpkt(std::span<const uint8_t> octets);

// Milliseconds of the traffic's own clock.
using Milliseconds = int64_t;

// Bounds of what is held; whatever reaches one goes out as it came.
struct HoldLimits {
    Milliseconds longest = 300;
    size_t connectionOctets = 65536; // of payload, for each direction of a connection
    size_t allOctets = size_t{4} * 1024 * 1024;
    size_t streams = 65536; // directions of connections that are watched
    size_t allSegments = 2048;

    bool operator==(const HoldLimits&) const = default;
};

// What became of the segments that were held; every one that was held is in one of the last five.
struct HoldCounts {
    uint64_t held = 0;
    uint64_t completed = 0; // shown whole
    uint64_t late = 0;      // released by time
    uint64_t crowded = 0;   // released by a bound
    uint64_t broken = 0;    // turned out to be no TPKT, or its connection was reset
    uint64_t repeated = 0;  // repetitions of held segments, dropped
};

// A TCP packet, from its IP header on, that belongs to its host: `token` tells the host which.
struct HeldSegment {
    uint64_t token = 0;
    std::vector<uint8_t> packet;
    PacketLayout layout;
    uint32_t sequence = 0;
};

// Segments that go on now, in the order of their sequence numbers. With `joint` they carry whole
// messages together and are to be shown as one packet; else each one for itself.
struct ReleasedSegments {
    std::vector<HeldSegment> segments;
    bool joint = false;
};

// Waits until the segments of a TPKT message (RFC 1006) are all there, so that they can be changed
// together: what has left cannot be changed any more.
//
// TPKT's length tells when a message is whole, the SYN where the first one begins. A connection
// first seen in its middle is passed on, for good. A segment that ends within the first 4 octets of
// a message goes out at once: its sender may wait for an acknowledgement before it sends the rest
// (RFC 896). Knows no clock, no queue and no kernel.
class SegmentHold {
public:
    explicit SegmentHold(const HoldLimits& limits = {}) : limits_(limits) {}
    SegmentHold(const SegmentHold&) = delete;
    SegmentHold& operator=(const SegmentHold&) = delete;

    enum class Decision {
        Pass,    // goes on as it is, alone
        Held,    // the copy is kept; the caller keeps the packet back
        Drop,    // a repetition of what is held
        Release, // `released` goes on; the packet is the last of it, or among it
    };

    // Takes a TCP packet of one direction of a connection; `flow` is its source and destination.
    Decision take(const FlowId& flow, std::span<const uint8_t> packet, const PacketLayout& layout,
                  uint64_t token, Milliseconds now, ReleasedSegments& released);

    // The octets of one direction begin with this sequence number, whatever was known of it.
    void begin(const FlowId& flow, uint32_t firstSequence);

    // Releases one direction whose oldest segment is held too long, or, with `all`, any. False when
    // there is none.
    bool expire(Milliseconds now, bool all, ReleasedSegments& released);

    // When `expire` will have something to do; a negative number: nothing is held.
    [[nodiscard]] Milliseconds nextExpiry() const;

    void configure(const HoldLimits& limits) { limits_ = limits; }
    [[nodiscard]] const HoldCounts& counts() const { return counts_; }
    [[nodiscard]] size_t heldOctets() const { return octets_; }

private:
    // How far the octets of a stream have been cut into messages.
    struct Framing {
        uint32_t messageEnd = 0; // of the message that the last octet lies in
        uint8_t header[4] = {};  // of a message of which no more is there
        size_t headerOctets = 0;
    };
    enum class Cut { Whole, Partial, HeaderOnly, Broken };

    struct Stream {
        uint32_t next = 0;             // sequence number behind what went on
        Framing framing;               // up to there
        std::vector<HeldSegment> held; // by sequence number
        size_t octets = 0;
        Milliseconds since = 0;
        std::list<FlowId>::iterator age;  // longest unused first
        std::list<FlowId>::iterator wait; // valid while something is held
    };

    static Cut cut(Framing& framing, uint32_t position, std::span<const uint8_t> octets);
    static std::vector<uint8_t> consecutive(const Stream& stream);
    void forget(const FlowId& flow);
    void keep(Stream& stream, const FlowId& flow, HeldSegment&& segment, Milliseconds now);
    Decision takeNew(Stream& stream, const FlowId& flow, std::span<const uint8_t> packet,
                     const PacketLayout& layout, uint64_t token, Milliseconds now,
                     ReleasedSegments& released);
    void release(Stream& stream, const Framing& framing, ReleasedSegments& released);
    void releaseAsItCame(const FlowId& flow, ReleasedSegments& released);

    HoldLimits limits_;
    HoldCounts counts_;
    size_t octets_ = 0;
    size_t segments_ = 0;
    std::unordered_map<FlowId, Stream, FlowIdHash> streams_;
    std::list<FlowId> ages_;
    std::list<FlowId> waiting_; // oldest first
};

// The payloads of the segments as one packet, as receive offload would make it: the first one's
// headers, the lengths of all. Segments must be adjacent or overlap, their sum below 65,000 octets.
std::vector<uint8_t> joinSegments(std::span<const HeldSegment> segments);

// Writes the octets of a joint packet's payload into the segments that it was made of. True for
// each that changed.
std::vector<bool> splitJoint(std::span<const uint8_t> joint, std::span<HeldSegment> segments);

} // namespace gateway
