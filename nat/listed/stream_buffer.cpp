#include "nat/listed/stream_buffer.h"

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

// Counts on over what was written behind a gap that is filled now.
static void countHeld(StreamBuffer& stream) {
    while (stream.heldBytes < streamBufferCapacity && stream.written[stream.heldBytes]) {
        ++stream.heldBytes;
    }
}

static uint32_t tpktLength(const StreamBuffer& stream) {
    if (stream.heldBytes < tpktHeader) {
        return 0;
    }
    return stream.data[2] * 256u + stream.data[3];
}

static bool holdsWholeMessage(const StreamBuffer& stream) {
    return stream.messageLength != 0 && stream.heldBytes >= stream.messageLength;
}

Placement placeSegment(StreamBuffer& stream, const StreamSegment& segment, uint32_t capacity) {
    if (stream.baseSequence == 0) {
        stream.baseSequence = segment.sequence;
    }
    const auto offset = static_cast<int32_t>(segment.sequence - stream.baseSequence);
    const int64_t end = int64_t{offset} + segment.length;
    if (end > capacity) {
        return Placement::refused;
    }
    stream.segmentOffset = offset;
    stream.segmentLength = segment.length;
    if (end <= 0) {
        return Placement::nothingNew;
    }
    const uint32_t first = offset < 0 ? 0 : static_cast<uint32_t>(offset);
    const auto count = static_cast<uint32_t>(end) - first;
    store(stream, first, segment.payload + (segment.length - count), count);
    countHeld(stream);
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
    stream.written >>= dropped;
    if (stream.written.none()) {
        std::memset(stream.data, 0, sizeof stream.data);
        stream.messageLength = 0;
        return;
    }
    std::memmove(stream.data, stream.data + dropped, streamBufferCapacity - dropped);
    stream.segmentOffset -= static_cast<int32_t>(dropped);
    stream.messageLength = tpktLength(stream);
}
