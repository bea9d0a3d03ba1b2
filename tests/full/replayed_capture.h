// Recorded calls as frames that can be cut, and what leaves the replay of them, octet by octet.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "gateway/capture_file.h"
#include "gateway/ipv4_packet.h"
#include "gateway/replay.h"

namespace captures {

using Octets = std::vector<uint8_t>;
using Frames = std::vector<gateway::CapturedFrame>;

constexpr size_t linkHeader = 14; // Ethernet
constexpr uint32_t privateParty = 0x0A000005;
constexpr uint32_t publicAddress = 0xCB007101;

struct Segment {
    gateway::PacketLayout layout;
    std::span<uint8_t> packet;
    gateway::Endpoint source, destination;
    bool sent;

    explicit Segment(gateway::CapturedFrame& frame)
        : packet(std::span<uint8_t>(frame.octets).subspan(linkHeader)) {
        const gateway::PacketKind kind = classifyPacket(packet, layout);
        EXPECT_TRUE(kind == gateway::PacketKind::Tcp || kind == gateway::PacketKind::Udp);
        source = sourceOf(packet, layout);
        destination = destinationOf(packet, layout);
        sent = source.address == privateParty || source.address == publicAddress;
    }
    bool isTcpPayload() const {
        return layout.protocol == gateway::Protocol::Tcp && layout.payloadLength != 0;
    }
    std::span<uint8_t> payload() const {
        return packet.subspan(layout.payloadOffset, layout.payloadLength);
    }
};

// A frame like `like` with octets [from, to) of its payload.
gateway::CapturedFrame cutOut(gateway::CapturedFrame like, size_t from, size_t to);

// A recording's frames but for media.
Frames readFrames(const std::string& name);

// A direction of a TCP connection by its inside view, or all datagrams of a direction.
using StreamId = std::pair<std::string, bool>;

struct Outcome {
    std::map<StreamId, std::map<uint32_t, uint8_t>> octets; // by sequence number
    std::map<std::string, std::string> mapped; // inside to public endpoint, "tcp 10.0.0.5:47231"
    size_t remaining = 0;
    size_t messages = 0;
    gateway::ReplayTotals totals;
};

// What becomes of frames; `published`: the private party takes calls from outside.
Outcome replayed(const Frames& frames, bool published);

// The recording knows no router: what comes from outside names the private endpoints. Here they are
// the public ones, as outside parties would have learned them.
Frames asLearnedOutside(const Frames& recorded, const Outcome& first, bool published);

struct Place {
    uint32_t sequence; // of its first octet
    gateway::Endpoint endpoint;
    std::string path;
};

// What the locator finds in a stream.
std::vector<Place> placesOf(const StreamId& id, const std::map<uint32_t, uint8_t>& stream);

} // namespace captures
