// The packets that a script's steps stand for, and the parties that exchange them.
#pragma once

#include "fuzz/call_script.h"
#include "fuzz/packet.h"

namespace fuzzing {

inline constexpr uint32_t privateParties[] = {0x0A000005, 0x0A000006};
inline constexpr uint32_t firstSequence = 0xFFFFF000; // numbers wrap round within most calls

/// The step's flow as the private party sends it. Of four outside parties the target names one.
FlowKey partiesOf(const Step& step, uint32_t fourthOutsideParty);

/// The same flow as a packet has it that is sent, or that arrives at the public address.
FlowKey directed(bool sent, const FlowKey& inside);

/// The step's framed payload as its segments carry it; one empty segment when there is none.
struct Piece {
    uint32_t offset; // in the payload
    Octets octets;
};
std::vector<Piece> piecesOf(const Step& step);

/// A sent packet with a right IP header, but for its length and what the step sets; everything
/// behind the header is the step's.
Octets rawPacket(const Step& step, const FlowKey& inside);

} // namespace fuzzing
