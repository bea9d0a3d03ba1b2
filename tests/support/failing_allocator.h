// Counts the module's allocations and lets the one after a given number fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "asn1per/asn1per.h"

class FailingAllocator {
public:
    static constexpr size_t never = SIZE_MAX;

    explicit FailingAllocator(size_t succeeding = never) : before(rtAllocator) {
        remaining = succeeding;
        once = false;
        live = 0;
        granted = 0;
        taken = 0;
        rtAllocator = {allocate, release};
    }
    ~FailingAllocator() { rtAllocator = before; }
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    void succeedFor(size_t count) { remaining = count; }
    // As succeedFor, but only the one after them fails.
    void failOnceAfter(size_t count) {
        remaining = count;
        once = true;
    }
    size_t liveBlocks() const { return live; }
    size_t served() const { return granted; }

    // Octets taken since the last call, given back or not.
    size_t drainTakenOctets() { return std::exchange(taken, 0); }

private:
    static void* allocate(size_t octets) {
        if (remaining == 0) {
            remaining = std::exchange(once, false) ? never : 0;
            return nullptr;
        }
        --remaining;
        ++live;
        ++granted;
        taken += octets;
        return std::malloc(octets);
    }
    static void release(void* memory) {
        --live;
        std::free(memory);
    }

    static inline size_t remaining = never;
    static inline bool once = false;
    static inline size_t live = 0;
    static inline size_t granted = 0;
    static inline size_t taken = 0;
    PerAllocator before;
};
