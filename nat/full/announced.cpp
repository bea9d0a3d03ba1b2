// Outside endpoints that private hosts are told to connect to.

#include "nat/full/endpoints.h"
#include "nat/observer.h"

namespace full_scope {
namespace {

void tellAnnounced(void(H323NAT_CALL* function)(void*, const H323ObservedConnection*),
                   const Announced& announced) {
    if (function != nullptr) {
        const uint64_t call = announced.call == none ? 0 : state.calls[announced.call].number;
        const H323ObservedConnection event = {
            announced.role, 6, observed(announced.inside), {}, observed(announced.outside), call};
        tell(function, event);
    }
}

// Takes the record out of everything but the list of its call.
void end(Index index) {
    const Announced& announced = state.announced[index];
    tellAnnounced(observer.connectionOver, announced);
    unlink<Announced, &Announced::next>(
        state.announced, state.announcedByOutside[hashEndpoint(announced.outside)], index);
    if (announced.call == none) {
        leave(state.announced, state.announcedAges, index);
    }
    uncount(countOf(announced.outside.address));
    give(state.announced, index);
}

Index find(const EndpointKey& outside, Index call) {
    Index index = state.announcedByOutside[hashEndpoint(outside)];
    while (index != none &&
           !(state.announced[index].outside == outside && state.announced[index].call == call)) {
        index = state.announced[index].next;
    }
    return index;
}

Index takeRecord() {
    const Index index = take(state.announced);
    if (index != none || state.announcedAges.oldest == none) {
        return index;
    }
    end(state.announcedAges.oldest);
    return take(state.announced);
}

} // namespace

void announce(uint8_t role, const EndpointKey& outside, uint32_t insideAddress, Index call) {
    const Index known = find(outside, call);
    if (known != none) {
        if (call == none) {
            renew(state.announced, state.announcedAges, known);
        }
        return;
    }
    if (call != none && state.calls[call].announced == announcedOfCall) {
        return;
    }
    const Index index = takeRecord();
    if (index == none) {
        return;
    }
    Announced& announced = state.announced[index];
    announced.role = role;
    announced.outside = outside;
    announced.inside = {insideAddress, 0};
    announced.call = call;
    Index& head = state.announcedByOutside[hashEndpoint(outside)];
    announced.next = head;
    head = index;
    if (call == none) {
        join(state.announced, state.announcedAges, index);
    } else {
        announced.nextOfOwner = state.calls[call].firstAnnounced;
        state.calls[call].firstAnnounced = index;
        ++state.calls[call].announced;
    }
    count(countOf(outside.address));
    tellAnnounced(observer.connectionAnnounced, announced);
}

Index findAnnounced(const EndpointKey& outside) {
    Index index = state.announcedByOutside[hashEndpoint(outside)];
    while (index != none && !(state.announced[index].outside == outside)) {
        index = state.announced[index].next;
    }
    return index;
}

void endAnnounced(Call& call) {
    while (call.firstAnnounced != none) {
        const Index index = call.firstAnnounced;
        call.firstAnnounced = state.announced[index].nextOfOwner;
        end(index);
    }
    call.announced = 0;
}

void dropAnnounced() {
    while (state.announcedAges.oldest != none) {
        end(state.announcedAges.oldest);
    }
}

} // namespace full_scope
