// What the module may take from its allocator.
#pragma once

#include "tests/support/failing_allocator.h"

namespace fuzzing {

/// Stands in the place of the module's allocator from the first call on.
inline FailingAllocator& memoryMeter() {
    static FailingAllocator meter;
    return meter;
}

/// The most that decoding messages of together so many octets may take, each octet costing at most
/// `perOctet` octets of heap. Any two heap blocks in a row are more than half full, and one message
/// takes at least one block.
constexpr uint64_t memoryBound(uint64_t octets, uint64_t perOctet) {
    return sizeof(MemBlock) + octets * perOctet * 2 * sizeof(MemBlock) / PER_BLOCK_SPACE;
}

} // namespace fuzzing
