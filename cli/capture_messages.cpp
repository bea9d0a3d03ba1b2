#include "cli/capture_messages.h"

#include <optional>

#include "asn1per/status.h"
#include "cli/framing.h"
#include "gateway/capture_time.h"
#include "gateway/ipv4_packet.h"
#include "gateway/link_layer.h"
#include "nat/q931.h"
#include "nat/well_known_ports.h"
#include "tree/message_tree.h"

namespace cli {
namespace {

constexpr size_t mostAhead = 65536;
constexpr size_t mostStreams = 65536;

bool isRasPort(uint16_t port) {
    return port == rasPort || port == discoveryPort;
}

uint64_t keyOf(const gateway::Endpoint& endpoint) {
    return uint64_t{endpoint.address} << 16 | endpoint.port;
}

int32_t distance(uint32_t from, uint32_t to) {
    return static_cast<int32_t>(to - from);
}

/// What T.120 and remote desktops have in their frames (X.224).
bool isTransportProtocol(std::span<const uint8_t> frame) {
    constexpr uint8_t data = 0xF0;
    constexpr uint8_t lastOfData = 0x80;
    const uint8_t length = frame[tpktHeader];
    if (frame.size() < tpktHeader + 3) {
        return false;
    }
    const uint8_t code = frame[tpktHeader + 1] & 0xF0;
    if (code == data) {
        return length == 2 && frame[tpktHeader + 2] == lastOfData;
    }
    return code >= lastOfData && length == frame.size() - tpktHeader - 1;
}

bool reads(const FramedMessage& message) {
    const tree::MessageType* type = tree::findMessageType(message.type);
    const tree::DecodedMessage decoded = tree::decodeMessage(*type, message.encoding);
    return decoded.status == PER_OK && decoded.octetsRead == message.encoding.size();
}

/// Messages of a frame; nothing when its information elements contradict its length.
std::optional<std::vector<FramedMessage>> messagesOf(std::span<const uint8_t> frame) {
    try {
        return messagesInTpkts(frame);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

std::string placeText(const CapturedMessage& message) {
    return "frame " + std::to_string(message.frame) + "  " +
           gateway::secondsText(gateway::nanosecondsOf(message.time) -
                                gateway::nanosecondsOf(message.captureStart)) +
           "  " + gateway::toText(message.source) + " → " + gateway::toText(message.destination);
}

bool CaptureMessages::next(CapturedMessage& message) {
    while (found.empty()) {
        if (!reader.next(current)) {
            return false;
        }
        takeFrame(current);
    }
    message = std::move(found.front());
    found.pop_front();
    return true;
}

void CaptureMessages::takeFrame(const gateway::CapturedFrame& frame) {
    const auto network = gateway::networkLayer(reader.linkType(), frame.octets);
    if (network.protocol != gateway::NetworkProtocol::Ipv4) {
        return;
    }
    const auto packet = std::span<const uint8_t>(frame.octets).subspan(network.offset);
    gateway::PacketLayout layout;
    const gateway::PacketKind kind = gateway::classifyPacket(packet, layout);
    if (kind != gateway::PacketKind::Tcp && kind != gateway::PacketKind::Udp) {
        return;
    }
    CapturedMessage place;
    place.frame = frame.number;
    place.time = frame.time;
    place.captureStart = frame.captureStart;
    place.source = gateway::sourceOf(packet, layout);
    place.destination = gateway::destinationOf(packet, layout);
    const auto payload = packet.subspan(layout.payloadOffset, layout.payloadLength);
    if (kind == gateway::PacketKind::Udp) {
        if (!payload.empty() &&
            (isRasPort(place.source.port) || isRasPort(place.destination.port))) {
            place.type = "H225RasMessage";
            place.encoding.assign(payload.begin(), payload.end());
            found.push_back(std::move(place));
        }
        return;
    }
    if (streams.size() > mostStreams) {
        streams.clear();
    }
    Stream& stream = streams[{keyOf(place.source), keyOf(place.destination)}];
    const uint32_t sequence = gateway::sequenceNumber(packet, layout);
    if ((gateway::tcpFlags(packet, layout) & gateway::tcpSyn) != 0) {
        stream = {};
        stream.started = true;
        stream.next = sequence + 1;
    } else if (!payload.empty()) {
        takeSegment(stream, sequence, payload, place);
    }
}

void CaptureMessages::takeSegment(Stream& stream, uint32_t sequence,
                                  std::span<const uint8_t> payload, const CapturedMessage& place) {
    if (!stream.started || stream.aheadOctets > mostAhead) {
        stream.octets.clear();
        stream.ahead.clear();
        stream.aheadOctets = 0;
        stream.started = true;
        stream.next = sequence;
    }
    if (distance(stream.next, sequence) > 0) {
        auto& held = stream.ahead[sequence];
        if (payload.size() > held.size()) {
            stream.aheadOctets += payload.size() - held.size();
            held.assign(payload.begin(), payload.end());
        }
        return;
    }
    const auto append = [&stream](uint32_t start, std::span<const uint8_t> octets) {
        const auto known = static_cast<size_t>(distance(start, stream.next));
        if (known < octets.size()) {
            stream.octets.insert(stream.octets.end(),
                                 octets.begin() + static_cast<std::ptrdiff_t>(known), octets.end());
            stream.next = start + static_cast<uint32_t>(octets.size());
        }
    };
    append(sequence, payload);
    // Sequence numbers wrap: the map's order is not that of the stream.
    for (auto held = stream.ahead.begin(); held != stream.ahead.end();) {
        if (distance(stream.next, held->first) > 0) {
            ++held;
            continue;
        }
        append(held->first, held->second);
        stream.aheadOctets -= held->second.size();
        stream.ahead.erase(held);
        held = stream.ahead.begin();
    }
    takeFrames(stream, place);
}

void CaptureMessages::takeFrames(Stream& stream, const CapturedMessage& place) {
    size_t at = 0;
    const std::span<const uint8_t> octets(stream.octets);
    while (octets.size() - at > 0) {
        const auto rest = octets.subspan(at);
        if (!beginsTpkt(rest)) {
            at = octets.size(); // the next segment may begin with a frame
            break;
        }
        if (rest.size() < tpktHeader) {
            break;
        }
        const size_t length = tpktLength(rest.data());
        if (length <= tpktHeader) {
            at = octets.size();
            break;
        }
        if (length > rest.size()) {
            break;
        }
        if (!takeTpkt(stream, rest.first(length), place)) {
            at = octets.size();
            break;
        }
        at += length;
    }
    stream.octets.erase(stream.octets.begin(),
                        stream.octets.begin() + static_cast<std::ptrdiff_t>(at));
}

/// False for a frame that is none of H.323's.
bool CaptureMessages::takeTpkt(Stream& stream, std::span<const uint8_t> frame,
                               const CapturedMessage& place) {
    const auto messages = messagesOf(frame);
    if (!stream.isH323) {
        const bool isQ931 = frame[tpktHeader] == q931Discriminator;
        stream.isH323 = messages && !isTransportProtocol(frame) &&
                        (isQ931 || (!messages->empty() && reads(messages->front())));
    }
    if (!stream.isH323 || !messages) {
        return stream.isH323;
    }
    for (const FramedMessage& framed : *messages) {
        CapturedMessage message = place;
        message.type = framed.type;
        message.encoding.assign(framed.encoding.begin(), framed.encoding.end());
        found.push_back(std::move(message));
    }
    return true;
}

} // namespace cli
