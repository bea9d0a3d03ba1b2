// Records in fixed number, told apart by index: half the size of a pointer, and the memory can be
// taken in one piece. Index 0 is no record.
#pragma once

#include <cstddef>
#include <cstdint>

namespace full_scope {

using Index = uint32_t;
inline constexpr Index none = 0;

// A record type has a member `Index next`, which links the free records.
template <typename Record> struct Pool {
    Record* records; // capacity + 1 of them; the first one stays unused
    uint32_t capacity;
    uint32_t used;
    uint32_t fresh; // records from here on were never taken
    Index free;

    Record& operator[](Index index) { return records[index]; }
};

template <typename Record> void resetPool(Pool<Record>& pool, void* memory, uint32_t capacity) {
    pool = {static_cast<Record*>(memory), capacity, 0, 1, none};
}

// A record with all members at their defaults; none when all are in use.
template <typename Record> Index take(Pool<Record>& pool) {
    Index index = pool.free;
    if (index != none) {
        pool.free = pool[index].next;
    } else if (pool.fresh <= pool.capacity) {
        index = pool.fresh++;
    } else {
        return none;
    }
    ++pool.used;
    pool[index] = Record{};
    return index;
}

template <typename Record> void give(Pool<Record>& pool, Index index) {
    pool[index].next = pool.free;
    pool.free = index;
    --pool.used;
}

// Chains of records with the same hash. The link is one of the record's members, so that a record
// can be in several tables.
struct Buckets {
    Index* heads;
    uint32_t mask; // number of heads, a power of two, less 1

    Index& operator[](uint32_t hash) { return heads[hash & mask]; }
};

// Spreads the number over 32 bits. The seed is another one in every process: whoever chooses the
// addresses in messages must not choose their chains too.
extern uint64_t hashSeed;

inline uint32_t spread(uint64_t value) {
    value = (value ^ hashSeed) * 0x9E3779B97F4A7C15u;
    return static_cast<uint32_t>(value >> 32);
}

// Takes `index` out of the chain that begins at `head`.
template <typename Record, Index Record::*Link>
void unlink(Pool<Record>& pool, Index& head, Index index) {
    for (Index* link = &head; *link != none; link = &(pool[*link].*Link)) {
        if (*link == index) {
            *link = pool[index].*Link;
            return;
        }
    }
}

} // namespace full_scope
