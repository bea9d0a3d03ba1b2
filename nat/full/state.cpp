#include "nat/full/state.h"

#include <bit>
#include <cstring>

#include "asn1per/asn1per.h"

namespace full_scope {

State state = {};
QuickLook quickLook = {};
int32_t listedFrom = shortestWithPorts;
uint64_t hashSeed = 0;

namespace {

constexpr uint32_t standardCalls = 1000;
constexpr uint32_t mostCalls = 1u << 20;

// Lays out records one behind the other; without memory it only adds up.
struct Layout {
    uint8_t* memory;
    size_t octets;

    void* place(size_t size, size_t count) {
        void* records = memory == nullptr ? nullptr : memory + octets;
        octets += (size * count + 15) / 16 * 16;
        return records;
    }
};

template <typename Record> void lay(Layout& layout, Pool<Record>& pool, uint32_t capacity) {
    resetPool(pool, layout.place(sizeof(Record), size_t{capacity} + 1), capacity);
}

void lay(Layout& layout, Buckets& buckets, uint32_t records) {
    const uint32_t heads = std::bit_ceil(records);
    buckets = {static_cast<Index*>(layout.place(sizeof(Index), heads)), heads - 1};
}

// How many of each a call takes: one signalling and one H.245 connection; audio and video as RTP
// pairs, an RTCP port that is elsewhere, the H.245 endpoint. Some calls take more, most less.
void layOut(Layout& layout, State& out, uint32_t calls) {
    lay(layout, out.calls, calls);
    lay(layout, out.connections, 2 * calls + 16);
    lay(layout, out.mappings, 5 * calls + 64);
    lay(layout, out.claims, 7 * calls + 128);
    lay(layout, out.announced, 2 * calls + 32);
    lay(layout, out.registrations, calls + 16);
    lay(layout, out.streams.blocks, calls / 4 + 128);
    lay(layout, out.streams.edits, 8 * calls + 512);
    lay(layout, out.connectionsByInside, out.connections.capacity);
    lay(layout, out.connectionsByPublic, out.connections.capacity);
    lay(layout, out.mappingsByInside, out.mappings.capacity);
    lay(layout, out.mappingsByPublic, out.mappings.capacity);
    lay(layout, out.announcedByOutside, out.announced.capacity);
    lay(layout, out.registrationsByEnds, out.registrations.capacity);
    out.streams.scratch = static_cast<uint8_t*>(layout.place(1, longestMessage));
}

} // namespace

bool buildState(State& built, uint32_t calls) {
    if (calls == 0) {
        calls = standardCalls;
    }
    if (calls > mostCalls) {
        return false;
    }
    built = {};
    Layout size = {nullptr, 0};
    layOut(size, built, calls);
    void* memory = rtAllocator.allocate(size.octets);
    if (memory == nullptr) {
        return false;
    }
    std::memset(memory, 0, size.octets);
    Layout layout = {static_cast<uint8_t*>(memory), 0};
    layOut(layout, built, calls);
    built.memory = memory;
    return true;
}

void dropState() {
    rtAllocator.release(state.memory);
    const uint32_t published = state.publishedAddress;
    state = {};
    quickLook = {};
    listedFrom = shortestWithPorts;
    state.publishedAddress = published;
}

} // namespace full_scope
