#include "nat/full/stream.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "nat/q931.h"

namespace full_scope {
namespace {

constexpr uint8_t tpktVersion = 3;

// Signed distance, so that it holds across the wrap of sequence numbers.
int32_t distance(uint32_t from, uint32_t to) {
    return static_cast<int32_t>(to - from);
}

// Of the first octets of a message, as many as there are.
bool mayBeTpkt(const uint8_t* octets, size_t count) {
    return (count < 1 || octets[0] == tpktVersion) && (count < 2 || octets[1] == 0) &&
           (count < tpktHeader || tpktLength(octets) > tpktHeader);
}

void dropOldestEdit(Stream& stream, StreamPools& pools) {
    Index* link = &stream.newestEdit;
    while (pools.edits[*link].next != none) {
        link = &pools.edits[*link].next;
    }
    give(pools.edits, *link);
    *link = none;
    --stream.edits;
}

void rememberEdit(Stream& stream, StreamPools& pools, uint32_t sequence, const uint8_t* before,
                  const uint8_t* after) {
    if (stream.edits == editsOfStream) {
        dropOldestEdit(stream, pools);
    }
    Index index = take(pools.edits);
    if (index == none && stream.edits != 0) {
        dropOldestEdit(stream, pools);
        index = take(pools.edits);
    }
    if (index == none) {
        return;
    }
    Edit& edit = pools.edits[index];
    edit.sequence = sequence;
    std::memcpy(edit.before, before, endpointSize);
    std::memcpy(edit.after, after, endpointSize);
    edit.next = stream.newestEdit;
    stream.newestEdit = index;
    ++stream.edits;
}

// Writes the remembered octets into those of the segment that were there before. Where the packet
// does not hold what was there the first time, it stays.
bool repeatEdits(Stream& stream, StreamPools& pools, const Segment& segment) {
    bool changed = false;
    for (Index index = stream.newestEdit; index != none; index = pools.edits[index].next) {
        const Edit& edit = pools.edits[index];
        const int32_t start = distance(segment.sequence, edit.sequence);
        if (start <= -static_cast<int32_t>(endpointSize) ||
            start >= static_cast<int64_t>(segment.length)) {
            continue;
        }
        const size_t skipped = start < 0 ? static_cast<size_t>(-start) : 0;
        const size_t place = start < 0 ? 0 : static_cast<size_t>(start);
        const size_t count = std::min(endpointSize - skipped, segment.length - place);
        if (std::memcmp(segment.payload + place, edit.before + skipped, count) == 0) {
            std::memcpy(segment.payload + place, edit.after + skipped, count);
            changed = true;
        }
    }
    return changed;
}

// Nobody takes the last quarter of all blocks who holds some already.
bool mayTakeBlock(const Stream& stream, const StreamPools& pools) {
    constexpr uint16_t ownBlocks = 4;
    const Pool<HeldBlock>& blocks = pools.blocks;
    return stream.blocks < ownBlocks || blocks.used < blocks.capacity - blocks.capacity / 4;
}

void noteFresh(FreshRanges& fresh, uint32_t sequence, size_t count) {
    const uint32_t behind = sequence + static_cast<uint32_t>(count);
    if (fresh.count != 0 && fresh.ranges[fresh.count - 1].behind == sequence) {
        fresh.ranges[fresh.count - 1].behind = behind;
    } else if (fresh.count < std::size(fresh.ranges)) {
        fresh.ranges[fresh.count++] = {sequence, behind};
    }
}

// Puts octets behind the block that `link` leads to, or into a new one at `link`.
bool store(Stream& stream, StreamPools& pools, Index*& link, const uint8_t* octets, size_t count,
           uint32_t sequence) {
    while (count != 0) {
        const Index index = mayTakeBlock(stream, pools) ? take(pools.blocks) : none;
        if (index == none) {
            return false;
        }
        HeldBlock& block = pools.blocks[index];
        const size_t part = std::min(count, blockOctets);
        block.sequence = sequence;
        block.length = static_cast<uint32_t>(part);
        std::memcpy(block.data, octets, part);
        block.next = *link;
        *link = index;
        link = &block.next;
        ++stream.blocks;
        octets += part;
        sequence += static_cast<uint32_t>(part);
        count -= part;
    }
    return true;
}

// As much as fits behind the octets of a block.
size_t extend(HeldBlock& block, const uint8_t* octets, size_t count) {
    const size_t part = std::min(count, blockOctets - block.length);
    std::memcpy(block.data + block.length, octets, part);
    block.length += static_cast<uint32_t>(part);
    return part;
}

// Holds those octets that are not held yet, and notes which they are. They begin at or behind
// stream.message.
bool hold(Stream& stream, StreamPools& pools, const uint8_t* octets, size_t count,
          uint32_t sequence, FreshRanges& fresh) {
    Index* link = &stream.firstBlock;
    while (count != 0) {
        // `link` leads to the first block that may end behind `sequence`.
        while (*link != none) {
            HeldBlock& block = pools.blocks[*link];
            const uint32_t end = block.sequence + block.length;
            if (distance(end, sequence) < 0) {
                break;
            }
            if (end == sequence) {
                const bool last = block.next == none;
                const size_t room =
                    last ? count
                         : std::min<size_t>(count, pools.blocks[block.next].sequence - sequence);
                const size_t part = extend(block, octets, room);
                noteFresh(fresh, sequence, part);
                octets += part;
                sequence += static_cast<uint32_t>(part);
                count -= part;
            }
            link = &block.next;
        }
        if (count == 0) {
            return true;
        }
        if (*link == none) {
            noteFresh(fresh, sequence, count);
            return store(stream, pools, link, octets, count, sequence);
        }
        HeldBlock& block = pools.blocks[*link];
        const int32_t before = distance(sequence, block.sequence);
        if (before > 0) {
            const size_t part = std::min(count, static_cast<size_t>(before));
            noteFresh(fresh, sequence, part);
            if (!store(stream, pools, link, octets, part, sequence)) {
                return false;
            }
            octets += part;
            sequence += static_cast<uint32_t>(part);
            count -= part;
            continue;
        }
        const size_t known = std::min<size_t>(count, block.sequence + block.length - sequence);
        octets += known;
        sequence += static_cast<uint32_t>(known);
        count -= known;
        link = &block.next;
    }
    return true;
}

// Copies the consecutive octets from the message's first one on, at most `wanted`. Gives how many.
size_t gather(const Stream& stream, StreamPools& pools, uint8_t* octets, size_t wanted) {
    size_t count = 0;
    uint32_t sequence = stream.message;
    for (Index index = stream.firstBlock; index != none && count < wanted;
         index = pools.blocks[index].next) {
        const HeldBlock& block = pools.blocks[index];
        if (block.sequence != sequence) {
            break;
        }
        const size_t part = std::min<size_t>(block.length, wanted - count);
        std::memcpy(octets + count, block.data, part);
        count += part;
        sequence += block.length;
    }
    return count;
}

// Gives back what lies before stream.message.
void dropRead(Stream& stream, StreamPools& pools) {
    while (stream.firstBlock != none) {
        HeldBlock& block = pools.blocks[stream.firstBlock];
        const int32_t read = distance(block.sequence, stream.message);
        if (read <= 0) {
            return;
        }
        if (static_cast<uint32_t>(read) < block.length) {
            block.length -= static_cast<uint32_t>(read);
            std::memmove(block.data, block.data + read, block.length);
            block.sequence = stream.message;
            return;
        }
        const Index index = stream.firstBlock;
        stream.firstBlock = block.next;
        give(pools.blocks, index);
        --stream.blocks;
    }
}

StreamState failed(const Stream& stream) {
    return stream.framed ? StreamState::lost : StreamState::foreign;
}

// The messages that lie whole in the packet, from the beginning of a message on. Sets `read` to the
// octets that they take.
StreamState readInPlace(Stream& stream, const Segment& segment, const MessageReader& reader,
                        size_t& read) {
    read = 0;
    while (read < segment.length) {
        const uint8_t* octets = segment.payload + read;
        const size_t left = segment.length - read;
        if (!mayBeTpkt(octets, left)) {
            return failed(stream);
        }
        if (left < tpktHeader || left < tpktLength(octets)) {
            break;
        }
        const size_t length = tpktLength(octets);
        stream.framed = true;
        const StreamMessage message{
            octets,         length,         segment.payload, static_cast<ptrdiff_t>(read),
            segment.length, stream.message, nullptr};
        stream.message += static_cast<uint32_t>(length);
        reader.read(message, reader.owner);
        read += length;
    }
    return StreamState::followed;
}

// The messages that came in pieces and are whole now.
StreamState readHeld(Stream& stream, StreamPools& pools, const Segment& segment,
                     const FreshRanges& fresh, const MessageReader& reader) {
    for (;;) {
        uint8_t header[tpktHeader];
        const size_t held = gather(stream, pools, header, tpktHeader);
        if (!mayBeTpkt(header, held)) {
            return failed(stream);
        }
        if (held < tpktHeader) {
            return StreamState::followed;
        }
        const size_t length = tpktLength(header);
        if (gather(stream, pools, pools.scratch, length) < length) {
            return StreamState::followed;
        }
        stream.framed = true;
        const StreamMessage message{pools.scratch,   length,
                                    segment.payload, distance(segment.sequence, stream.message),
                                    segment.length,  stream.message,
                                    &fresh};
        stream.message += static_cast<uint32_t>(length);
        reader.read(message, reader.owner);
        dropRead(stream, pools);
    }
}

} // namespace

void beginStream(Stream& stream, uint32_t firstSequence) {
    stream.message = firstSequence;
    stream.end = firstSequence;
    stream.begun = true;
}

static void giveBlocks(Stream& stream, StreamPools& pools) {
    while (stream.firstBlock != none) {
        const Index index = stream.firstBlock;
        stream.firstBlock = pools.blocks[index].next;
        give(pools.blocks, index);
    }
    stream.blocks = 0;
}

static StreamState readSegment(Stream& stream, StreamPools& pools, const Segment& segment,
                               const MessageReader& reader) {
    const int32_t ahead = distance(stream.message, segment.sequence);
    // What lies further ahead than any message is long has left a hole that nobody will fill, or
    // is not of this connection at all.
    if (ahead > static_cast<int32_t>(longestMessage)) {
        return inWindow(stream, segment.sequence) ? StreamState::lost : StreamState::followed;
    }
    const int64_t behind = ahead < 0 ? -static_cast<int64_t>(ahead) : 0;
    if (behind >= static_cast<int64_t>(segment.length)) {
        return StreamState::followed;
    }
    const auto known = static_cast<size_t>(behind);
    const Segment fresh{segment.payload + known, segment.length - known,
                        segment.sequence + static_cast<uint32_t>(known)};
    const uint32_t end = fresh.sequence + static_cast<uint32_t>(fresh.length);
    if (distance(stream.end, end) > 0) {
        stream.end = end;
    }
    if (ahead <= 0 && stream.firstBlock == none) {
        size_t read = 0;
        const StreamState state = readInPlace(stream, fresh, reader, read);
        if (state != StreamState::followed) {
            return state;
        }
        Index* link = &stream.firstBlock;
        return store(stream, pools, link, fresh.payload + read, fresh.length - read, stream.message)
                   ? StreamState::followed
                   : StreamState::lost;
    }
    FreshRanges ranges = {};
    if (!hold(stream, pools, fresh.payload, fresh.length, fresh.sequence, ranges)) {
        return StreamState::lost;
    }
    return readHeld(stream, pools, fresh, ranges, reader);
}

StreamState takeSegment(Stream& stream, StreamPools& pools, const Segment& segment,
                        const MessageReader& reader, bool& rewritten) {
    if (!stream.begun || segment.length == 0) {
        return StreamState::followed;
    }
    rewritten |= repeatEdits(stream, pools, segment);
    if (stream.lost) {
        const uint32_t end = segment.sequence + static_cast<uint32_t>(segment.length);
        if (inWindow(stream, segment.sequence) && distance(stream.end, end) > 0) {
            stream.end = end;
        }
        return StreamState::lost;
    }
    const StreamState result = readSegment(stream, pools, segment, reader);
    if (result == StreamState::lost) {
        stream.lost = true;
        giveBlocks(stream, pools);
    }
    return result;
}

bool leavesNow(const StreamMessage& message, size_t offset, size_t count) {
    if (message.fresh == nullptr) {
        return true;
    }
    const uint32_t first = message.sequence + static_cast<uint32_t>(offset);
    const uint32_t behind = first + static_cast<uint32_t>(count);
    const FreshRange* ranges = message.fresh->ranges;
    return std::any_of(ranges, ranges + message.fresh->count, [&](const FreshRange& range) {
        return distance(range.first, first) >= 0 && distance(behind, range.behind) >= 0;
    });
}

void writeEndpoint(Stream& stream, StreamPools& pools, const StreamMessage& message, size_t offset,
                   const uint8_t* octets) {
    uint8_t* place = message.payload + (message.start + static_cast<ptrdiff_t>(offset));
    rememberEdit(stream, pools, message.sequence + static_cast<uint32_t>(offset), place, octets);
    std::memcpy(place, octets, endpointSize);
}

void dropEdits(Stream& stream, StreamPools& pools) {
    while (stream.newestEdit != none) {
        const Index index = stream.newestEdit;
        stream.newestEdit = pools.edits[index].next;
        give(pools.edits, index);
    }
    stream.edits = 0;
}

void endStream(Stream& stream, StreamPools& pools) {
    giveBlocks(stream, pools);
    dropEdits(stream, pools);
    stream = Stream{};
}

bool inWindow(const Stream& stream, uint32_t sequence) {
    const int32_t behind = distance(stream.end, sequence);
    return stream.begun && behind >= -static_cast<int32_t>(longestMessage) &&
           behind <= static_cast<int32_t>(longestMessage);
}

} // namespace full_scope
