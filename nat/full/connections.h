// The followed TCP connections: call signalling and H.245.
#pragma once

#include "nat/full/state.h"

namespace full_scope {

// By the private end as the private host knows it, or by the public end as packets from outside
// carry it. None when no such connection is followed.
Index findByInside(const EndpointKey& inside, const EndpointKey& outside);
Index findByPublic(const EndpointKey& publicEndpoint, const EndpointKey& outside);

// Follows a connection from now on; one between the same ends is forgotten first. When all records
// are in use, one that is over gives way, else the one longest without traffic if it was quiet for
// some minutes, or for some seconds and has never carried a message. None when there is no such
// record.
Index follow(uint8_t role, const EndpointKey& inside, const EndpointKey& outside);

// The public end, told by the host or by a mapping.
void setPublicEndpoint(Index connection, const EndpointKey& publicEndpoint);

// Whether a packet from outside has shown that the public end is right. Until then it is a guess,
// or not known.
void setPlaced(Index connection, bool placed);

// Notes that the connection has traffic.
void touch(Index connection);

// The connection that can be forgotten for the sake of another one, as `follow` says; never
// `other`.
Index spareConnection(Index other);

// Both ends are done, or one broke it off: its calls end. The record stays until it is needed for
// another connection, for segments that are sent again.
void close(Index connection);

// When no change of octets can be remembered any more: forgets connections that are over, and the
// changes of quiet ones; never those of `other`.
void makeRoomForEdits(Index other);

// Forgets a connection: its call ends with it, if nothing else carries that call. `end` is
// H323NAT_END_..., for the observer.
void forget(Index connection, uint8_t end);

} // namespace full_scope
