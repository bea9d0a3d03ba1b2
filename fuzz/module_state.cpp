#include "fuzz/module_state.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "fuzz/memory_meter.h"
#include "fuzz/require.h"
#include "fuzz/script_host.h"
#include "nat/connection_pools.h"
#include "nat/inbound_state.h"

namespace fuzzing {

namespace {

std::set<const ListLink*> linksOf(const ListLink& list) {
    std::set<const ListLink*> links;
    for (const ListLink* link = list.next; link != &list; link = link->next) {
        require(link->next->previous == link, "a list is linked both ways");
        require(links.insert(link).second, "a record is on its list once");
    }
    return links;
}

void requireSoundStream(const StreamBuffer& stream, uint32_t capacity) {
    require(stream.heldBytes <= capacity, "a buffer holds no more than it can");
    require(stream.segmentData == nullptr, "no pointer into a packet outlives the hook");
    require(stream.messageChanged == 0, "the mark of a rewritten message is read at once");
    if (stream.heldBytes < tpktHeaderLength) {
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
    const auto active = linksOf(lists.activeList);
    const auto free = linksOf(lists.freeList);
    require(active.size() + free.size() == poolSize, "every record is on a list");
    for (const ListLink* link : free) {
        require(!active.contains(link), "no record is on both lists");
        require(isClear(*static_cast<const Record*>(link)), "a free record is clear");
    }
    for (const ListLink* link : active) {
        requireSoundStream(static_cast<const Record*>(link)->stream, streamBufferCapacity);
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

} // namespace fuzzing
