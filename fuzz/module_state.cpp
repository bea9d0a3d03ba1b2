#include "fuzz/module_state.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/memory_meter.h"
#include "fuzz/require.h"
#include "fuzz/script_host.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"

namespace fuzzing {

namespace {

using Links = std::vector<const ListLink*>;

void addLinks(const ListLink& list, Links& links) {
    for (const ListLink* link = list.next; link != &list; link = link->next) {
        require(link->next->previous == link, "a list is linked both ways");
        require(links.size() < poolSize, "a pool's lists have no more records than the pool");
        links.push_back(link);
    }
}

void requireSoundStream(const StreamBuffer& stream, uint32_t capacity) {
    require(stream.heldBytes <= capacity, "a buffer holds no more than it can");
    require(stream.segmentData == nullptr, "no pointer into a packet outlives the hook");
    require(stream.messageChanged == 0, "the mark of a rewritten message is read at once");
    if (stream.heldBytes < tpktHeader) {
        require(stream.messageLength == 0, "without a whole header there is no message length");
        return;
    }
    // A segment that is refused or brings nothing leaves the length as it was.
    require(stream.messageLength == stream.data[2] * 256u + stream.data[3],
            "the message length is the one that the header states");
}

template <typename Record> bool isClear(const Record& record) {
    static const Record clear{};
    constexpr size_t links = sizeof(ListLink);
    return std::memcmp(reinterpret_cast<const uint8_t*>(&record) + links,
                       reinterpret_cast<const uint8_t*>(&clear) + links,
                       sizeof record - links) == 0;
}

template <typename Record> void requireSoundPool(const RecordLists& lists) {
    Links links;
    links.reserve(poolSize);
    addLinks(lists.activeList, links);
    for (const ListLink* link : links) {
        requireSoundStream(static_cast<const Record*>(link)->stream, streamBufferCapacity);
    }
    addLinks(lists.freeList, links);
    require(links.size() == poolSize, "every record is on a list");
    std::ranges::sort(links);
    require(std::ranges::adjacent_find(links) == links.end(), "no record is on a list twice");
}

template <typename Record> void requireClear(const ListLink& list) {
    for (const ListLink* link = list.next; link != &list; link = link->next) {
        require(isClear(*static_cast<const Record*>(link)), "a free record is clear");
    }
}

void requireSoundIndex(const ControlChannelPool& pool) {
    size_t active = 0;
    for (const ListLink* link = pool.activeList.next; link != &pool.activeList; link = link->next) {
        const auto* control = static_cast<const ControlChannelConnection*>(link);
        require(hasEndpoint(pool.remoteEndpoints, control->remoteEndpoint),
                "the index has the endpoint of every active connection");
        ++active;
    }
    const auto& slots = pool.remoteEndpoints.slots;
    require(endpointIndexSlots - active ==
                static_cast<size_t>(std::count(std::begin(slots), std::end(slots), 0)),
            "the index has no endpoint besides");
}

template <typename Pool, typename Record> void releaseAll(Pool& pool) {
    while (pool.activeList.next != &pool.activeList) {
        releaseRecord(pool, *static_cast<Record*>(pool.activeList.next));
    }
}

} // namespace

void startModule() {
    memoryMeter();
    require(H323InitializeDLL(&ScriptHost::callbacks) == 1, "the module starts");
}

void forgetCalls() {
    releaseAll<CallSignalPool, CallSignalConnection>(callSignalPool);
    releaseAll<ControlChannelPool, ControlChannelConnection>(controlChannelPool);
    ResetInboundMapping();
}

void requireConsistentState() {
    requireSoundPool<CallSignalConnection>(callSignalPool);
    requireSoundPool<ControlChannelConnection>(controlChannelPool);
    requireSoundIndex(controlChannelPool);
    requireSoundStream(inboundMappingState.signallingFromRemote, inboundBufferCapacity);
    requireSoundStream(inboundMappingState.signallingToRemote, inboundBufferCapacity);
    requireSoundStream(inboundMappingState.controlToRemote, inboundBufferCapacity);
}

void requireClearFreeRecords() {
    requireClear<CallSignalConnection>(callSignalPool.freeList);
    requireClear<ControlChannelConnection>(controlChannelPool.freeList);
}

} // namespace fuzzing
