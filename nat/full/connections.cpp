#include "nat/full/connections.h"

#include "nat/full/calls.h"
#include "nat/wall_clock.h"

namespace full_scope {
namespace {

constexpr uint32_t quietSeconds = 180;   // of a connection that has carried messages
constexpr uint32_t unspokenSeconds = 10; // of one that has not, or whose call is over

void unlinkInside(Index index) {
    const Connection& connection = state.connections[index];
    unlink<Connection, &Connection::next>(
        state.connections,
        state.connectionsByInside[hashEnds(connection.inside, connection.outside)], index);
}

void unlinkPublic(Index index) {
    const Connection& connection = state.connections[index];
    if (connection.publicEndpoint.address != 0) {
        unlink<Connection, &Connection::nextByPublic>(
            state.connections,
            state.connectionsByPublic[hashEnds(connection.publicEndpoint, connection.outside)],
            index);
    }
}

uint32_t quietOf(const Connection& connection) {
    return secondsBetween(connection.lastActivity, wallClockSeconds());
}

// A host that shows only what it is told to watch does not show the end of an H.245 connection that
// lasts longer than its call.
bool maySpare(Index index) {
    const Connection& connection = state.connections[index];
    const bool spoke = connection.sent.framed && connection.received.framed;
    const bool callOver = connection.role == H323NAT_ROLE_H245 && connection.call != none &&
                          callOfControl(index) == none;
    return quietOf(connection) > (spoke && !callOver ? quietSeconds : unspokenSeconds);
}

Ages& agesOf(const Connection& connection) {
    return connection.over ? state.overAges : state.connectionAges;
}

// The one that is over for longest; never `other`.
Index oldestOver(Index other) {
    const Index index = state.overAges.oldest;
    return index != none && index == other ? state.connections[index].newer : index;
}

} // namespace

Index findByInside(const EndpointKey& inside, const EndpointKey& outside) {
    Index index = state.connectionsByInside[hashEnds(inside, outside)];
    while (index != none && !(state.connections[index].inside == inside &&
                              state.connections[index].outside == outside)) {
        index = state.connections[index].next;
    }
    return index;
}

Index findByPublic(const EndpointKey& publicEndpoint, const EndpointKey& outside) {
    Index index = state.connectionsByPublic[hashEnds(publicEndpoint, outside)];
    while (index != none && !(state.connections[index].publicEndpoint == publicEndpoint &&
                              state.connections[index].outside == outside)) {
        index = state.connections[index].nextByPublic;
    }
    return index;
}

Index spareConnection(Index other) {
    constexpr int looks = 16;
    const Index over = oldestOver(other);
    if (over != none) {
        return over;
    }
    Index index = state.connectionAges.oldest;
    for (int look = 0; look < looks && index != none; ++look) {
        if (index != other && maySpare(index)) {
            return index;
        }
        index = state.connections[index].newer;
    }
    return none;
}

Index follow(uint8_t role, const EndpointKey& inside, const EndpointKey& outside) {
    const Index before = findByInside(inside, outside);
    if (before != none) {
        forget(before, H323NAT_END_CLOSED);
    }
    Index index = take(state.connections);
    if (index == none) {
        const Index spare = spareConnection(none);
        if (spare == none) {
            return none;
        }
        forget(spare, H323NAT_END_FORGOTTEN);
        index = take(state.connections);
    }
    Connection& connection = state.connections[index];
    connection.inside = inside;
    connection.outside = outside;
    connection.role = role;
    connection.lastActivity = wallClockSeconds();
    Index& head = state.connectionsByInside[hashEnds(inside, outside)];
    connection.next = head;
    head = index;
    join(state.connections, state.connectionAges, index);
    count(countOf(outside.address));
    return index;
}

void setPublicEndpoint(Index index, const EndpointKey& publicEndpoint) {
    unlinkPublic(index);
    Connection& connection = state.connections[index];
    // The public end of a connection that is over may serve another one.
    const Index other = findByPublic(publicEndpoint, connection.outside);
    if (other != none) {
        unlinkPublic(other);
        state.connections[other].publicEndpoint = {};
    }
    connection.publicEndpoint = publicEndpoint;
    Index& head = state.connectionsByPublic[hashEnds(publicEndpoint, connection.outside)];
    connection.nextByPublic = head;
    head = index;
}

void setPlaced(Index index, bool placed) {
    Connection& connection = state.connections[index];
    state.unplaced += (placed ? 0u : 1u) - (connection.unplaced ? 1u : 0u);
    connection.unplaced = !placed;
}

void touch(Index index) {
    state.connections[index].lastActivity = wallClockSeconds();
    renew(state.connections, agesOf(state.connections[index]), index);
}

void close(Index index) {
    connectionOver(index, H323NAT_END_CLOSED);
    Connection& connection = state.connections[index];
    connection.sent.finished = true;
    connection.received.finished = true;
    if (!connection.over) {
        leave(state.connections, state.connectionAges, index);
        connection.over = true;
        join(state.connections, state.overAges, index);
    }
}

void makeRoomForEdits(Index other) {
    constexpr uint32_t repeatSeconds = 60; // a segment is not sent again later
    constexpr int looks = 64;
    const Pool<Edit>& edits = state.streams.edits;
    int look = 0;
    for (; look < looks && edits.used == edits.capacity; ++look) {
        const Index over = oldestOver(other);
        if (over == none) {
            break;
        }
        forget(over, H323NAT_END_CLOSED);
    }
    Index index = state.connectionAges.oldest;
    for (; look < looks && edits.used == edits.capacity && index != none; ++look) {
        Connection& connection = state.connections[index];
        if (index != other && quietOf(connection) > repeatSeconds) {
            dropEdits(connection.sent, state.streams);
            dropEdits(connection.received, state.streams);
        }
        index = connection.newer;
    }
}

void forget(Index index, uint8_t end) {
    connectionOver(index, end);
    Connection& connection = state.connections[index];
    endStream(connection.sent, state.streams);
    endStream(connection.received, state.streams);
    unlinkInside(index);
    unlinkPublic(index);
    setPlaced(index, true);
    leave(state.connections, agesOf(connection), index);
    uncount(countOf(connection.outside.address));
    give(state.connections, index);
}

} // namespace full_scope
