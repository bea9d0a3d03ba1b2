// All calls that the module follows, put aside and put back: thousands of variants of one packet
// can meet the same state without replaying what led to it.
#pragma once

#include <cstring>
#include <vector>

#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"

class ModuleSnapshot {
public:
    ModuleSnapshot() {
        keep(&callSignalPool, sizeof callSignalPool);
        keep(&controlChannelPool, sizeof controlChannelPool);
        keep(&inboundMappingState, sizeof inboundMappingState);
        keepRecords<CallSignalConnection>(callSignalPool);
        keepRecords<ControlChannelConnection>(controlChannelPool);
    }

    void restore() const {
        // What was taken since then goes back clear.
        clearRecords<CallSignalConnection>(callSignalPool);
        clearRecords<ControlChannelConnection>(controlChannelPool);
        for (const Area& area : areas_) {
            std::memcpy(area.place, area.octets.data(), area.octets.size());
        }
    }

private:
    struct Area {
        void* place;
        std::vector<uint8_t> octets;
    };

    void keep(void* place, size_t size) {
        const auto* octets = static_cast<const uint8_t*>(place);
        areas_.push_back({place, {octets, octets + size}});
    }

    // Of free records, which are clear, the links alone.
    template <typename Record> void keepRecords(RecordLists& lists) {
        for (ListLink* link = lists.freeList.next; link != &lists.freeList; link = link->next) {
            keep(link, sizeof *link);
        }
        for (ListLink* link = lists.activeList.next; link != &lists.activeList; link = link->next) {
            keep(link, sizeof(Record));
        }
    }

    template <typename Record> static void clearRecords(RecordLists& lists) {
        for (ListLink* link = lists.activeList.next; link != &lists.activeList;) {
            ListLink* next = link->next;
            std::memset(static_cast<void*>(static_cast<Record*>(link)), 0, sizeof(Record));
            link = next;
        }
    }

    std::vector<Area> areas_;
};
