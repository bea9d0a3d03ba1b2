// Tells in a few instructions that no record has a given endpoint, however many records there are.
//
// Every packet that leaves the private network asks for its destination among the H.245
// connections, and nearly none is one. The index holds the keys only; which record is the first
// with a key is the list's business.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nat/flow_key.h"

// At least four slots for each key keep the walk behind a slot short.
inline constexpr size_t endpointIndexSlots = 256;

// Open addressing: a key stands in its slot or in the next free one. An empty slot is 0.
struct EndpointIndex {
    uint64_t slots[endpointIndexSlots];
};

// The key as one number, never 0.
inline uint64_t packEndpoint(const EndpointKey& key) {
    return uint64_t{1} << 48 | uint64_t{key.address} << 16 | key.port;
}

// The slot where the search for a key begins: the upper bits of a product, which depend on every
// bit of the key.
inline size_t firstSlot(uint64_t packed) {
    return static_cast<size_t>(packed * 0x9E3779B97F4A7C15u >> 56);
}
static_assert(endpointIndexSlots == size_t{1} << 8, "firstSlot keeps 8 bits");

// Adds a key, also one that is there already. The caller keeps the number of keys below the number
// of slots.
inline void addEndpoint(EndpointIndex& index, const EndpointKey& key) {
    const uint64_t packed = packEndpoint(key);
    size_t slot = firstSlot(packed);
    while (index.slots[slot] != 0) {
        slot = (slot + 1) % endpointIndexSlots;
    }
    index.slots[slot] = packed;
}

inline bool hasEndpoint(const EndpointIndex& index, const EndpointKey& key) {
    const uint64_t packed = packEndpoint(key);
    for (size_t slot = firstSlot(packed); index.slots[slot] != 0;
         slot = (slot + 1) % endpointIndexSlots) {
        if (index.slots[slot] == packed) {
            return true;
        }
    }
    return false;
}
