#pragma once

#include "gateway/flow_table.h"
#include "gateway/ipv4_packet.h"
#include "gateway/module_session.h"
#include "gateway/segment_hold.h"
#include "gateway/translator.h"

#include <cstdint>
#include <span>
#include <vector>

namespace gateway {

enum class Direction { Sent, Received };

struct ReferenceHostSettings {
    Network inside;
    uint32_t publicAddress = 0;
    uint32_t publishedAddress = 0; // accepts TCP port 1720 from outside; 0 for none
    bool lossless = true;
    bool fullScope = false;
    FlowTableSettings flows; // its publicAddress is overwritten
};

// What became of a packet.
enum class Verdict {
    Translated,
    Local,    // between two private hosts, link-local or broadcast: never at the NAT
    Foreign,  // neither from nor to a private host
    Fragment, // these three pass untouched
    OtherProtocol,
    NotIpv4,
    Malformed,
    NoMapping,  // from outside, and no flow or open port of a private host takes it
    NoPort,     // from inside, and no public port is left
    Repetition, // of a segment that is held; dropped by whoever holds it
};
constexpr size_t verdictCount = static_cast<size_t>(Verdict::Repetition) + 1;

struct PacketOutcome {
    Verdict verdict = Verdict::NotIpv4;
    Direction direction = Direction::Sent;
    FlowId insideView; // of a translated packet; with NoMapping, `local` is where it was sent to
    bool payloadChanged = false; // the module says that it rewrote the payload
    bool truncated = false;      // headers translated, payload not shown to the module
};

// A mapping that the module asked for.
struct MappingRequest {
    enum class Kind { Media, Control };

    Kind kind = Kind::Media;
    Endpoint inside;
    Endpoint publicEndpoint;    // as answered
    uint32_t remoteAddress = 0; // UNKNOWN_REMOTE_ADDRESS for any
    bool granted = false;
    bool reused = false; // the same mapping was open before
};

// A whole IPv4 NAT host around the module, without files or sockets: packets go in, translated
// packets come out in place. One per process and thread, like ModuleSession.
class ReferenceHost final : private Translator {
public:
    // Throws std::runtime_error when the module cannot start.
    // `observer` is told what the module does, and outlives the host; it may be null.
    explicit ReferenceHost(const ReferenceHostSettings& settings,
                           ModuleObserver* observer = nullptr);

    // Which way a packet goes, judged by its addresses alone; nullopt when it never reaches the
    // NAT (Local, Foreign). `packet` holds at least an IPv4 header.
    [[nodiscard]] Verdict route(std::span<const uint8_t> packet, Direction& direction) const;

    // Takes one IPv4 packet as it reaches the router, headers in network byte order, octets behind
    // its total length allowed, and turns it into the packet that leaves. A received packet may
    // carry the public destination, or the private one when it was captured inside; both leave
    // with the private destination. Checksums of a translated packet are right afterwards; those
    // of a truncated one are adjusted.
    PacketOutcome process(std::span<uint8_t> packet, Seconds now);

    // The same for segments of one direction of a connection that carry whole messages together:
    // the module is shown one packet of them all. Gives what became of each.
    std::vector<PacketOutcome> processJoint(std::span<HeldSegment> segments, Seconds now);

    // The mappings asked for during the last call of process or processJoint.
    [[nodiscard]] const std::vector<MappingRequest>& mappingRequests() const { return requests_; }

private:
    MediaMapping openMedia(const Endpoint& inside, uint32_t remoteAddress) override;
    std::optional<ControlMapping> openControl(const Endpoint& inside,
                                              uint32_t remoteAddress) override;
    HostMappingRecord* findInside(const Endpoint& inside, const Endpoint& remote) override;
    HostMappingRecord* findOutside(const Endpoint& publicEndpoint, const Endpoint& remote) override;

    // Whether the module is to see a packet, or has seen its payload already.
    enum class Show { Packet, Nothing };

    PacketOutcome translate(std::span<uint8_t> packet, Show show);
    void processSent(std::span<uint8_t> packet, const PacketLayout& layout, Show show,
                     PacketOutcome& outcome);
    void processReceived(std::span<uint8_t> packet, const PacketLayout& layout, Show show,
                         PacketOutcome& outcome);
    Flow* flowOfReceived(const PacketLayout& layout, const Endpoint& source,
                         const Endpoint& destination);
    void finish(std::span<uint8_t> packet, const PacketLayout& layout, Flow& flow,
                PacketOutcome& outcome);

    ReferenceHostSettings settings_;
    FlowTable flows_;
    ModuleSession module_;
    Seconds now_ = 0;
    std::vector<MappingRequest> requests_;
};

} // namespace gateway
