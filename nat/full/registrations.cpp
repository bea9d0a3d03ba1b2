#include "nat/full/registrations.h"

#include <algorithm>

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

Ages& agesOf(Index index) {
    return state.registrations[index].confirmed ? state.registrationAges : state.unconfirmedAges;
}

void setConfirmed(Index index, bool confirmed) {
    leave(state.registrations, agesOf(index), index);
    state.registrations[index].confirmed = confirmed;
    join(state.registrations, agesOf(index), index);
}

// Those that were never answered go first, however young: whoever sends requests to nobody must not
// take the records of hosts that are registered.
Index spare() {
    if (state.unconfirmedAges.oldest != none) {
        return state.unconfirmedAges.oldest;
    }
    const Index index = state.registrationAges.oldest;
    const bool quiet =
        secondsBetween(state.registrations[index].lastActivity, wallClockSeconds()) > quietSeconds;
    return quiet ? index : none;
}

// The record of the answering gatekeeper; none when there is none, or a group seems to answer. What
// the host has asked of a group is the gatekeeper's now.
Index answeringFor(uint32_t inside, uint32_t gatekeeper) {
    const Index known = findRegistration(inside, gatekeeper);
    const Index group = findRegistration(inside, discoveryGroup);
    if (group == none) {
        return known;
    }
    if (known == group) {
        return none;
    }
    if (known != none) {
        const int open =
            state.registrations[known].unanswered + state.registrations[group].unanswered;
        state.registrations[known].unanswered =
            static_cast<uint8_t>(std::min(open, int{UINT8_MAX}));
        shareClaims(group, known);
        dropRegistration(group);
        return known;
    }
    unlinkEnds(group);
    state.registrations[group].gatekeeper = gatekeeper;
    link(group);
    return group;
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
        renew(state.registrations, agesOf(index), index);
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
        join(state.registrations, agesOf(index), index);
    }
    Registration& registration = state.registrations[index];
    registration.lastActivity = wallClockSeconds();
    if (registration.unanswered != UINT8_MAX) {
        ++registration.unanswered;
    }
    return index;
}

bool answerRequest(uint32_t inside, uint32_t gatekeeper, Index& index) {
    index = answeringFor(inside, gatekeeper);
    if (index == none || state.registrations[index].unanswered == 0) {
        return false;
    }
    --state.registrations[index].unanswered;
    return true;
}

void confirmRegistration(Index index) {
    setConfirmed(index, true);
}

void endRegistration(Index index) {
    Registration& registration = state.registrations[index];
    endClaims(registration.firstClaim, 0);
    registration.mappings = 0;
    registration.leaving = false;
    setConfirmed(index, false);
}

void dropRegistration(Index index) {
    endClaims(state.registrations[index].firstClaim, 0);
    unlinkEnds(index);
    leave(state.registrations, agesOf(index), index);
    give(state.registrations, index);
}

} // namespace full_scope
