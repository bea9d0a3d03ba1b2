#include "nat/listed/connection_pools.h"

#include <memory>

#include "asn1per/asn1per.h"
#include "nat/listed/observed.h"
#include "nat/wall_clock.h"

CallSignalPool callSignalPool;
ControlChannelPool controlChannelPool;

static void unlink(ListLink& link) {
    link.previous->next = link.next;
    link.next->previous = link.previous;
}

static void pushFront(ListLink& list, ListLink& link) {
    link.next = list.next;
    link.previous = &list;
    list.next->previous = &link;
    list.next = &link;
}

static void freeAll(ListLink& list) {
    while (list.next != &list) {
        ListLink* record = list.next;
        unlink(*record);
        rtAllocator.release(record);
    }
}

template <typename Record> static int32_t buildLists(RecordLists& lists) {
    std::construct_at(&lists);
    for (size_t made = 0; made < poolSize; ++made) {
        void* memory = rtAllocator.allocate(sizeof(Record));
        if (memory == nullptr) {
            freeAll(lists.freeList);
            return PER_NO_MEMORY;
        }
        pushFront(lists.freeList, *std::construct_at(static_cast<Record*>(memory)));
    }
    return 0;
}

template <typename Record> static Record* takeFrom(RecordLists& lists) {
    ListLink* link = lists.freeList.next;
    if (link == &lists.freeList) {
        return nullptr;
    }
    unlink(*link);
    pushFront(lists.activeList, *link);
    return static_cast<Record*>(link);
}

template <typename Record> static void giveBack(RecordLists& lists, Record& record) {
    unlink(record);
    pushFront(lists.freeList, *std::construct_at(&record));
}

static void tellForgotten(const CallSignalConnection& record) {
    observeEnd(record, H323NAT_END_FORGOTTEN);
}

static void tellForgotten(const ControlChannelConnection& record) {
    observeControl(record, true);
}

template <typename Record> static void giveBackAll(RecordLists& lists) {
    while (lists.activeList.next != &lists.activeList) {
        auto& record = *static_cast<Record*>(lists.activeList.next);
        tellForgotten(record);
        giveBack(lists, record);
    }
}

template <typename Record> static void giveBackIdle(RecordLists& lists) {
    const uint32_t now = wallClockSeconds();
    for (ListLink* link = lists.activeList.next; link != &lists.activeList;) {
        auto& record = *static_cast<Record*>(link);
        link = link->next;
        if (isIdle(now, record.lastActivity)) {
            tellForgotten(record);
            giveBack(lists, record);
        }
    }
}

template <typename Record, typename Key>
static Record* findActive(RecordLists& lists, Key Record::*member, const Key& key) {
    for (ListLink* link = lists.activeList.next; link != &lists.activeList; link = link->next) {
        auto* record = static_cast<Record*>(link);
        if (record->*member == key) {
            return record;
        }
    }
    return nullptr;
}

// Open addressing cannot drop a key without moving others. Keys change once or twice in a call, so
// writing the index anew is simpler than that.
static void indexAnew(ControlChannelPool& pool) {
    pool.remoteEndpoints = {};
    for (ListLink* link = pool.activeList.next; link != &pool.activeList; link = link->next) {
        addEndpoint(pool.remoteEndpoints,
                    static_cast<ControlChannelConnection*>(link)->remoteEndpoint);
    }
}

int32_t buildPool(CallSignalPool& pool) {
    return buildLists<CallSignalConnection>(pool);
}

int32_t buildPool(ControlChannelPool& pool) {
    pool.remoteEndpoints = {};
    return buildLists<ControlChannelConnection>(pool);
}

CallSignalConnection* takeRecord(CallSignalPool& pool) {
    return takeFrom<CallSignalConnection>(pool);
}

ControlChannelConnection* takeRecord(ControlChannelPool& pool) {
    auto* record = takeFrom<ControlChannelConnection>(pool);
    indexAnew(pool);
    return record;
}

void releaseRecord(CallSignalPool& pool, CallSignalConnection& record) {
    giveBack(pool, record);
}

void releaseRecord(ControlChannelPool& pool, ControlChannelConnection& record) {
    giveBack(pool, record);
    indexAnew(pool);
}

void releaseAllRecords(CallSignalPool& pool) {
    giveBackAll<CallSignalConnection>(pool);
}

void releaseAllRecords(ControlChannelPool& pool) {
    giveBackAll<ControlChannelConnection>(pool);
    indexAnew(pool);
}

void expireRecords(CallSignalPool& pool) {
    giveBackIdle<CallSignalConnection>(pool);
}

void expireRecords(ControlChannelPool& pool) {
    giveBackIdle<ControlChannelConnection>(pool);
    indexAnew(pool);
}

void setRemoteEndpoint(ControlChannelConnection& record, const EndpointKey& remoteEndpoint) {
    record.remoteEndpoint = remoteEndpoint;
    indexAnew(controlChannelPool);
}

CallSignalConnection* findByOutsideFlow(const FlowKey& outsideFlow) {
    return findActive(callSignalPool, &CallSignalConnection::outsideFlow, outsideFlow);
}

CallSignalConnection* findByInsideFlow(const FlowKey& insideFlow) {
    return findActive(callSignalPool, &CallSignalConnection::insideFlow, insideFlow);
}

CallSignalConnection* findByCalledParty(uint32_t calledPartyAddress) {
    for (ListLink* link = callSignalPool.activeList.next; link != &callSignalPool.activeList;
         link = link->next) {
        auto* record = static_cast<CallSignalConnection*>(link);
        if (record->outsideFlow.sourceAddress == calledPartyAddress) {
            return record;
        }
    }
    return nullptr;
}

ControlChannelConnection* findByRemoteEndpoint(const EndpointKey& remoteEndpoint) {
    return findActive(controlChannelPool, &ControlChannelConnection::remoteEndpoint,
                      remoteEndpoint);
}

// What a connection's append does with a segment that brings nothing new.
enum class NothingNew { stop, goOn };

template <typename Record>
static int32_t appendTo(Record& record, const StreamSegment& segment,
                        const MessageProcessor& processor, NothingNew nothingNew) {
    if (segment.length == 0) {
        return 0;
    }
    // The whole segment counts against the space behind the held octets, wherever it belongs.
    if (segment.length > streamBufferCapacity - record.stream.heldBytes) {
        return -1;
    }
    switch (placeSegment(record.stream, segment, streamBufferCapacity)) {
    case Placement::refused:
        return -1;
    case Placement::nothingNew:
        if (nothingNew == NothingNew::stop) {
            return 0;
        }
        break;
    case Placement::placed:
        break;
    }
    record.lastActivity = wallClockSeconds();
    processHeldMessages(record.stream, segment.payload, processor);
    return 0;
}

int32_t appendSegment(CallSignalConnection& record, const StreamSegment& segment,
                      const MessageProcessor& processor) {
    return appendTo(record, segment, processor, NothingNew::goOn);
}

int32_t appendSegment(ControlChannelConnection& record, const StreamSegment& segment,
                      const MessageProcessor& processor) {
    return appendTo(record, segment, processor, NothingNew::stop);
}
