// Tells in a few instructions that no record has a given endpoint, however many records there are.
//
// Every packet that leaves the private network asks for its destination among the H.245
// connections, and nearly none is one. The index holds the keys only; which record is the first
// with a key is the list's business.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nat/flow_key.h"

// Four slots and more for each key keep the walk behind a slot short. A power of two.
inline constexpr size_t endpointIndexSlots = 256;

// Open addressing: a key stands in its slot or in the next free one. An empty slot is 0.
struct EndpointIndex {
    uint64_t slots[endpointIndexSlots];
};

// The key as one number, never 0.
inline uint64_t packEndpoint(const EndpointKey& key) {
    return uint64_t{1} << 48 | uint64_t{key.address} << 16 | key.port;
}

// Where the search for a key begins. Somebody who chooses his addresses can make keys meet in one
// slot; the walk is then as long as there are keys, through adjacent memory.
inline size_t firstSlot(const EndpointKey& key) {
    const uint32_t mixed = (key.address * 0x9E3779B1u >> 16) ^ key.port;
    return mixed % endpointIndexSlots;
}

// Adds a key, also one that is there already. The caller keeps the number of keys below the number
// of slots.
inline void addEndpoint(EndpointIndex& index, const EndpointKey& key) {
    size_t slot = firstSlot(key);
    while (index.slots[slot] != 0) {
        slot = (slot + 1) % endpointIndexSlots;
    }
    index.slots[slot] = packEndpoint(key);
}

// No only if the index does not have the key. Yes as well when another key stands in its slot.
inline bool mayHaveEndpoint(const EndpointIndex& index, const EndpointKey& key) {
    return index.slots[firstSlot(key)] != 0;
}

inline bool hasEndpoint(const EndpointIndex& index, const EndpointKey& key) {
    for (size_t slot = firstSlot(key); index.slots[slot] != 0;
         slot = (slot + 1) % endpointIndexSlots) {
        if (index.slots[slot] == packEndpoint(key)) {
            return true;
        }
    }
    return false;
}
