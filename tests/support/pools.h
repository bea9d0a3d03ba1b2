// Fresh pools and inbound state for one test, without records of the test before and without leaks.
#pragma once

#include <gtest/gtest.h>

#include "asn1per/asn1per.h"
#include "nat/listed/connection_pools.h"
#include "nat/listed/inbound_state.h"

class FreshState {
public:
    FreshState() {
        EXPECT_EQ(buildPool(callSignalPool), 0);
        EXPECT_EQ(buildPool(controlChannelPool), 0);
        ResetInboundMapping();
    }
    ~FreshState() {
        freeRecords(callSignalPool);
        freeRecords(controlChannelPool);
        callSignalPool.~CallSignalPool();
        new (&callSignalPool) CallSignalPool;
        controlChannelPool.~ControlChannelPool();
        new (&controlChannelPool) ControlChannelPool;
    }
    FreshState(const FreshState&) = delete;
    FreshState& operator=(const FreshState&) = delete;

    static size_t count(const ListLink& list) {
        size_t length = 0;
        for (const ListLink* link = list.next; link != &list; link = link->next) {
            EXPECT_EQ(link->next->previous, link);
            ++length;
        }
        return length;
    }

private:
    static void freeRecords(RecordLists& lists) {
        for (ListLink* list : {&lists.freeList, &lists.activeList}) {
            for (ListLink* link = list->next; link != list;) {
                ListLink* next = link->next;
                rtAllocator.release(link);
                link = next;
            }
        }
    }
};
