#include "nat/full/registrations.h"

#include "nat/full/endpoints.h"
#include "nat/wall_clock.h"

namespace full_scope {
namespace {

constexpr uint32_t discoveryGroup = 0xE0000129; // 224.0.1.41
constexpr uint32_t quietSeconds = 180;

uint32_t hashOf(uint32_t inside, uint32_t gatekeeper) {
    return hashEnds({inside, 0}, {gatekeeper, 0});
}

void link(Index index) {
    Registration& registration = state.registrations[index];
    Index& head = state.registrationsByEnds[hashOf(registration.inside, registration.gatekeeper)];
    registration.next = head;
    head = index;
}

void unlinkEnds(Index index) {
    const Registration& registration = state.registrations[index];
    unlink<Registration, &Registration::next>(
        state.registrations,
        state.registrationsByEnds[hashOf(registration.inside, registration.gatekeeper)], index);
}

// Those that were never answered go first, however young: whoever sends requests to nobody must not
// take the records of hosts that are registered.
Index spare() {
    constexpr int looks = 16;
    Index index = state.registrationAges.oldest;
    for (int look = 0; look < looks && index != none; ++look) {
        if (!state.registrations[index].confirmed) {
            return index;
        }
        index = state.registrations[index].newer;
    }
    index = state.registrationAges.oldest;
    return index != none &&
                   wallClockSeconds() - state.registrations[index].lastActivity > quietSeconds
               ? index
               : none;
}

} // namespace

Index findRegistration(uint32_t inside, uint32_t gatekeeper) {
    Index index = state.registrationsByEnds[hashOf(inside, gatekeeper)];
    while (index != none && !(state.registrations[index].inside == inside &&
                              state.registrations[index].gatekeeper == gatekeeper)) {
        index = state.registrations[index].next;
    }
    return index;
}

Index registrationFor(uint32_t inside, uint32_t gatekeeper) {
    Index index = findRegistration(inside, gatekeeper);
    if (index != none) {
        renew(state.registrations, state.registrationAges, index);
    } else {
        index = take(state.registrations);
        if (index == none) {
            const Index old = spare();
            if (old == none) {
                return none;
            }
            dropRegistration(old);
            index = take(state.registrations);
        }
        state.registrations[index].inside = inside;
        state.registrations[index].gatekeeper = gatekeeper;
        link(index);
        join(state.registrations, state.registrationAges, index);
    }
    Registration& registration = state.registrations[index];
    registration.lastActivity = wallClockSeconds();
    if (registration.unanswered != UINT8_MAX) {
        ++registration.unanswered;
    }
    return index;
}

bool answerRequest(uint32_t inside, uint32_t gatekeeper, Index& index) {
    index = findRegistration(inside, gatekeeper);
    if (index == none) {
        index = findRegistration(inside, discoveryGroup);
        if (index == none) {
            return false;
        }
        unlinkEnds(index);
        state.registrations[index].gatekeeper = gatekeeper;
        link(index);
    }
    Registration& registration = state.registrations[index];
    if (registration.unanswered == 0) {
        return false;
    }
    --registration.unanswered;
    return true;
}

void endRegistration(Index index) {
    Registration& registration = state.registrations[index];
    endClaims(registration.firstClaim, 0);
    registration.mappings = 0;
    registration.confirmed = false;
}

void dropRegistration(Index index) {
    endClaims(state.registrations[index].firstClaim, 0);
    unlinkEnds(index);
    leave(state.registrations, state.registrationAges, index);
    give(state.registrations, index);
}

} // namespace full_scope
