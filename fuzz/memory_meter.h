// What the module may take from its allocator.
#pragma once

#include <algorithm>

#include "tests/support/failing_allocator.h"

namespace fuzzing {

/// Stands in the place of the module's allocator from the first call on.
inline FailingAllocator& memoryMeter() {
    static FailingAllocator meter;
    return meter;
}

/// What one octet of a message may cost at most. The worst is an element of H.245's certificate
/// criteria: three octets, and a record of 66,080 since its value may have 65,535.
constexpr size_t memoryPerOctet = 22 * 1024;

/// Such elements come 16 at most in a message; two records of that size may hold them. Without them
/// the worst is an element of H.245's escrow list: 26 bits for a record of 8,736 octets.
constexpr size_t memoryOfLargeRecords = 18 * 66'080;
constexpr size_t memoryPerOctetBesides = 2'800;

/// The most that decoding one message of this many octets may take.
constexpr size_t memoryBound(size_t octets) {
    return sizeof(MemBlock) +
           std::min(octets * memoryPerOctet, memoryOfLargeRecords + octets * memoryPerOctetBesides);
}

/// The same for several messages of together this many octets.
constexpr size_t memoryBoundOfMessages(size_t octets) {
    return sizeof(MemBlock) + octets * memoryPerOctet;
}

} // namespace fuzzing
