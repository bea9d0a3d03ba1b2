#include "fuzz/script_player.h"

#include "fuzz/script_packets.h"

namespace fuzzing {

void ScriptPlayer::play(const Step& step) {
    constexpr uint16_t backwards = 0xFFFF;
    const bool sent = step.kind == StepKind::TcpSent || step.kind == StepKind::UdpSent ||
                      step.kind == StepKind::RawSent;
    switch (step.kind) {
    case StepKind::TcpSent:
    case StepKind::TcpReceived:
        exchangeTcp(step);
        break;
    case StepKind::UdpSent:
    case StepKind::UdpReceived:
        pass(sent, udpPacket(directed(sent, insideFlow(step)), step.payload));
        break;
    case StepKind::RawSent:
    case StepKind::RawReceived:
        pass(sent, sent ? rawPacket(step, insideFlow(step)) : step.payload);
        break;
    case StepKind::Wait:
        wait(step.localPort == backwards ? -3600 : step.localPort);
        break;
    case StepKind::Publish:
        publish((step.parties & 0x80) != 0 ? 0 : privateParties[step.parties & 1]);
        break;
    case StepKind::Settings:
        apply(step);
        break;
    }
}

void ScriptPlayer::pass(bool sent, const Octets& packet) {
    if (packet.size() <= UINT16_MAX) {
        exchange(sent, packet);
    }
}

void ScriptPlayer::exchangeTcp(const Step& step) {
    const FlowKey inside = insideFlow(step);
    const FlowKey flow = directed(step.kind == StepKind::TcpSent, inside);
    host.addFlow(inside);
    const auto key = std::make_tuple(flow.sourceAddress, flow.destinationAddress, flow.sourcePort,
                                     flow.destinationPort);
    sendPieces(step, inside, sequences_.try_emplace(key, firstSequence).first->second, 0);
}

void ScriptPlayer::sendPieces(const Step& step, const FlowKey& inside, uint32_t& expected,
                              uint32_t acknowledgement) {
    const bool sent = step.kind == StepKind::TcpSent;
    const uint32_t sequence = expected + static_cast<uint32_t>(int32_t{step.shift});
    for (const Piece& piece : piecesOf(step)) {
        pass(sent, tcpPacket({directed(sent, inside), sequence + piece.offset, step.flags,
                              acknowledgement},
                             piece.octets));
        expected = sequence + piece.offset + static_cast<uint32_t>(piece.octets.size());
    }
}

} // namespace fuzzing
