#include "nat/full/calls.h"

#include <cstring>

#include "nat/full/connections.h"
#include "nat/full/endpoints.h"
#include "nat/observer.h"

namespace full_scope {
namespace {

H323Octets aliasOctets(const Alias& alias) {
    return {alias.length == 0 ? nullptr : alias.octets, alias.length};
}

void tellCall(void(H323NAT_CALL* function)(void*, const H323ObservedCall*), const Call& call) {
    if (function == nullptr) {
        return;
    }
    const H323ObservedCall event = {call.number,
                                    call.outbound ? H323NAT_SENT : H323NAT_RECEIVED,
                                    observed(call.inside),
                                    observed(call.outside),
                                    {call.identified ? call.identifier : nullptr,
                                     call.identified ? uint32_t{identifierOctets} : 0},
                                    aliasOctets(call.calling),
                                    aliasOctets(call.called),
                                    call.cause,
                                    call.ended};
    tell(function, event);
}

void leaveSignalling(Index index) {
    Call& call = state.calls[index];
    if (call.signalling != none) {
        unlink<Call, &Call::next>(state.calls, state.connections[call.signalling].call, index);
        call.signalling = none;
    }
}

void leaveCall(Index connection, uint8_t end) {
    const Index index = callOfControl(connection);
    state.connections[connection].call = none;
    if (index == none) {
        return;
    }
    Call& call = state.calls[index];
    --call.controls;
    if (call.controls == 0 && call.signalling == none) {
        endCall(index, end);
    }
}

// Anybody may send Setups to a private host that accepts calls: they leave a quarter of the records
// to the calls that private hosts begin.
bool mayTakeRecord(Index connection) {
    const uint32_t most = state.calls.capacity;
    return state.calls.used < (state.connections[connection].opened ? most : most - most / 4);
}

// A call can be carried by several connections: all must go before its record is free.
Index takeRecord(Index connection) {
    constexpr int tries = 16;
    for (int each = 0; each < tries && !mayTakeRecord(connection); ++each) {
        const Index spare = spareConnection(connection);
        if (spare == none) {
            break;
        }
        forget(spare, H323NAT_END_FORGOTTEN);
    }
    return mayTakeRecord(connection) ? take(state.calls) : none;
}

} // namespace

Index callOf(Index connection, const uint8_t* identifier) {
    const Index newest = state.connections[connection].call;
    for (Index index = newest; identifier != nullptr && index != none;
         index = state.calls[index].next) {
        const Call& call = state.calls[index];
        if (call.identified && std::memcmp(call.identifier, identifier, identifierOctets) == 0) {
            return index;
        }
    }
    return newest;
}

Index beginCall(Index connection, const uint8_t* identifier) {
    const Index index = takeRecord(connection);
    if (index == none) {
        return none;
    }
    Connection& signalling = state.connections[connection];
    signalling.carriedCall = true;
    Call& call = state.calls[index];
    call.number = nextCallNumber();
    call.signalling = connection;
    call.outbound = signalling.opened;
    call.inside = signalling.inside;
    call.outside = signalling.outside;
    if (identifier != nullptr) {
        call.identified = true;
        std::memcpy(call.identifier, identifier, identifierOctets);
    }
    call.next = signalling.call;
    signalling.call = index;
    return index;
}

void tellBegin(Index call) {
    tellCall(observer.callBegan, state.calls[call]);
}

void endCall(Index index, uint8_t end) {
    Call& call = state.calls[index];
    if (call.ended != 0) {
        return;
    }
    call.ended = end;
    endClaims(call.firstClaim, call.number);
    endAnnounced(call);
    tellCall(observer.callEnded, call);
    leaveSignalling(index);
    give(state.calls, index);
}

Index callOfControl(Index connection) {
    const Connection& control = state.connections[connection];
    const Index call = runningCall(control.call);
    return call != none && state.calls[call].number == control.callNumber ? call : none;
}

void joinCall(Index connection, Index call) {
    if (call != none) {
        state.connections[connection].call = call;
        state.connections[connection].callNumber = state.calls[call].number;
        ++state.calls[call].controls;
    }
}

void connectionOver(Index index, uint8_t end) {
    Connection& connection = state.connections[index];
    if (connection.role != H323NAT_ROLE_SIGNALLING) {
        leaveCall(index, end);
        return;
    }
    while (connection.call != none) {
        const Index call = connection.call;
        if (state.calls[call].controls == 0) {
            endCall(call, end);
        } else {
            leaveSignalling(call);
        }
    }
}

Index runningCall(Index call) {
    return call != none && state.calls[call].ended == 0 ? call : none;
}

} // namespace full_scope
