#include "nat/full/scope.h"

#include "nat/full/connections.h"
#include "nat/full/endpoints.h"
#include "nat/full/registrations.h"
#include "nat/well_known_ports.h"

namespace full_scope {
namespace {

void forgetAll() {
    while (state.connectionAges.oldest != none) {
        forget(state.connectionAges.oldest, H323NAT_END_FORGOTTEN);
    }
    while (state.overAges.oldest != none) {
        forget(state.overAges.oldest, H323NAT_END_FORGOTTEN);
    }
    while (state.registrationAges.oldest != none) {
        dropRegistration(state.registrationAges.oldest);
    }
    while (state.unconfirmedAges.oldest != none) {
        dropRegistration(state.unconfirmedAges.oldest);
    }
    dropAnnounced();
}

} // namespace

bool enter(uint32_t calls) {
    State built;
    if (!buildState(built, calls)) {
        return false;
    }
    leave();
    built.publishedAddress = state.publishedAddress;
    state = built;
    quickLook.active = true;
    listedFrom = moreThanAnyPacket;
    count(quickLook.rasPorts[rasPort]);
    count(quickLook.rasPorts[discoveryPort]);
    // Addresses of memory differ from process to process where the system randomises them.
    hashSeed = reinterpret_cast<uintptr_t>(built.memory) * 0xD6E8FEB86659FD93u;
    return true;
}

void leave() {
    if (quickLook.active) {
        forgetAll();
        dropState();
    }
}

} // namespace full_scope
