#include "fuzz/script_packets.h"

#include <algorithm>
#include <cstring>

#include "fuzz/script_host.h"

namespace fuzzing {

FlowKey partiesOf(const Step& step, uint32_t fourthOutsideParty) {
    const uint32_t outsideParties[] = {0xCB007109, 0xCB007108, 0xCB00710A, fourthOutsideParty};
    return {privateParties[step.parties & 1], outsideParties[step.parties >> 1 & 3], step.localPort,
            step.remotePort};
}

FlowKey directed(bool sent, const FlowKey& inside) {
    return sent ? inside
                : FlowKey{inside.destinationAddress, ScriptHost::publicAddress,
                          inside.destinationPort, inside.sourcePort};
}

std::vector<Piece> piecesOf(const Step& step) {
    const Octets payload = framedPayload(step);
    const size_t longest = step.cut == 0 ? payload.size() : step.cut;
    std::vector<Piece> pieces;
    size_t offset = 0;
    do {
        const size_t count = std::min(longest, payload.size() - offset);
        const auto first = payload.begin() + static_cast<ptrdiff_t>(offset);
        pieces.push_back(
            {static_cast<uint32_t>(offset), {first, first + static_cast<ptrdiff_t>(count)}});
        offset += count;
    } while (offset < payload.size());
    return pieces;
}

Octets rawPacket(const Step& step, const FlowKey& inside) {
    Octets packet = udpPacket(inside, {});
    packet.resize(20);
    packet[0] = step.flags;
    packet[9] = step.cut;
    packet.insert(packet.end(), step.payload.begin(), step.payload.end());
    const auto length = static_cast<uint16_t>(packet.size() + static_cast<size_t>(step.shift));
    std::memcpy(packet.data() + 2, &length, sizeof length);
    return packet;
}

} // namespace fuzzing
