// The full scope as a whole: choosing it, and the few instructions that tell for nearly every
// packet that it is none of ours.
#pragma once

#include "nat/full/datagrams.h"
#include "nat/full/state.h"
#include "nat/well_known_ports.h"

namespace full_scope {

// Chooses the full scope with room for so many calls; 0: 1,000. Calls that were followed are
// forgotten. False, and nothing has changed, when there is not enough memory.
bool enter(uint32_t calls);

// Leaves it: calls that are followed are forgotten, the memory is given back.
void leave();

// Each may say yes to a packet that is none of ours, never no to one that is.

// Of a segment that a private host sends to an address that is not known yet: by its port, or by
// its flags, SYN and ACK together.
inline bool mayBegin(uint16_t outsidePort, uint8_t flags) {
    constexpr uint8_t synAndAck = 0x12;
    return outsidePort == callSignallingPort || (flags & synAndAck) == synAndAck;
}

inline bool maySendDatagram(uint16_t outsidePort) {
    return outsidePort == rasPort || outsidePort == discoveryPort;
}

// One table for both ports: it holds the gatekeepers' own too.
inline bool mayReceiveDatagram(uint16_t outsidePort, uint16_t publicPort) {
    return (quickLook.rasPorts[outsidePort] | quickLook.rasPorts[publicPort]) != 0;
}

} // namespace full_scope
