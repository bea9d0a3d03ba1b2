#include "nat/listed/stream_buffer.h"

#include <algorithm>
#include <cstring>

using Octets = std::bitset<streamBufferCapacity>;

// Octets 0 to count - 1.
static Octets firstOctets(size_t count) {
    return ~Octets() >> (streamBufferCapacity - count);
}

static void store(StreamBuffer& stream, size_t position, const uint8_t* octets, size_t count) {
    std::memcpy(stream.data + position, octets, count);
    stream.written |= firstOctets(count) << position;
}

static uint32_t tpktLength(const StreamBuffer& stream) {
    if (stream.heldBytes < tpktHeaderLength) {
        return 0;
    }
    return stream.data[2] * 256u + stream.data[3];
}

static bool holdsWholeMessage(const StreamBuffer& stream) {
    if (stream.messageLength == 0 || stream.heldBytes < stream.messageLength) {
        return false;
    }
    // The header counts even if it states less than its own length.
    const size_t needed = std::max(stream.messageLength, tpktHeaderLength);
    return (~stream.written & firstOctets(needed)).none();
}

// The segment begins with octets that were dropped already: keep those from data[0] on.
static Placement placeTail(StreamBuffer& stream, const StreamSegment& segment, int32_t offset,
                           uint32_t capacity) {
    const int64_t tail = int64_t{offset} + segment.length;
    if (tail <= 0) {
        return Placement::nothingNew;
    }
    if (stream.heldBytes + tail > capacity) {
        return Placement::refused;
    }
    const auto count = static_cast<uint32_t>(tail);
    store(stream, stream.heldBytes, segment.payload + (segment.length - count), count);
    stream.segmentOffset = static_cast<int32_t>(stream.heldBytes) + offset;
    stream.heldBytes += count;
    return Placement::placed;
}

Placement placeSegment(StreamBuffer& stream, const StreamSegment& segment, uint32_t capacity) {
    if (stream.baseSequence == 0) {
        stream.baseSequence = segment.sequence;
    }
    const auto offset = static_cast<int32_t>(segment.sequence - stream.baseSequence);
    if (offset < 0) {
        return placeTail(stream, segment, offset, capacity);
    }
    const int64_t end = int64_t{offset} + segment.length;
    if (end > capacity) {
        return Placement::refused;
    }
    store(stream, static_cast<uint32_t>(offset), segment.payload, segment.length);
    stream.segmentOffset = offset;
    stream.heldBytes = static_cast<uint32_t>(end);
    return Placement::placed;
}

void processHeldMessages(StreamBuffer& stream, uint8_t* payload,
                         const MessageProcessor& processor) {
    stream.messageLength = tpktLength(stream);
    stream.segmentData = payload;
    while (holdsWholeMessage(stream) &&
           processor.run(stream, processor.owner) == MessageOutcome::done) {
        consumeMessage(stream);
    }
    stream.segmentData = nullptr;
}

void consumeMessage(StreamBuffer& stream) {
    const uint32_t dropped = stream.messageLength;
    stream.baseSequence += dropped;
    stream.heldBytes -= dropped;
    if (stream.heldBytes == 0) {
        std::memset(stream.data, 0, sizeof stream.data);
        stream.written.reset();
        stream.messageLength = 0;
        return;
    }
    std::memmove(stream.data, stream.data + dropped, stream.heldBytes);
    // What stays behind the held octets is a leftover of the move, no segment's octet.
    stream.written = (stream.written >> dropped) & firstOctets(stream.heldBytes);
    stream.segmentOffset -= static_cast<int32_t>(dropped);
    stream.messageLength = tpktLength(stream);
}
