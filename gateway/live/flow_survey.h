#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/conntrack.h"
#include "gateway/live/packet_growth.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace gateway {

// Seconds of a clock that never steps back.
using LiveSeconds = int64_t;

// When a private endpoint last sent media.
struct EndpointUse {
    Endpoint inside;
    LiveSeconds ago = 0;
};

// What the open mappings and calls want to know of the kernel's connections, and of what private
// hosts sent. Stands for itself: whoever has the packets asks and reads, which is one walk; another
// thread finds the answers, which takes its time where there are many connections.
class FlowSurvey {
public:
    // A mapping of one port, or of a pair; they come by their numbers.
    struct Mapping {
        uint64_t number = 0;
        uint64_t call = 0; // of its media; 0: none
        Protocol protocol = Protocol::Udp;
        Endpoint inside;
        Endpoint publicEndpoint;
        uint8_t ports = 1;
        bool leaves[2] = {false, false}; // packets of this endpoint leave from the public port
        bool fresh = false;              // flows that leave from elsewhere are to be told
    };
    void add(const Mapping& mapping) { mappings_.push_back(mapping); }
    // A TCP connection.
    void add(const FlowId& connection) { connections_.push_back(connection); }

    // Finds the answers. `growth` has the counts of the survey before.
    void fill(std::span<const TrackedFlow> flows, std::span<const EndpointUse> uses,
              PacketGrowth& growth);

    // A flow through a mapping, and its packets since the survey before.
    struct Flow {
        TrackedFlow tracked;
        FlowId insideView;
        PacketCounts more;
        bool control = false; // of the odd port of a pair
    };
    struct Use {
        uint64_t number = 0;
        uint64_t call = 0;
        bool open = false;                // a TCP connection through the mapping
        std::optional<LiveSeconds> quiet; // since the private host last sent media, if it did
        std::vector<Flow> flows;
    };
    // Of every mapping that was asked for, by their numbers.
    [[nodiscard]] std::span<const Use> uses() const { return uses_; }

    struct Owner {
        bool open = false;
        PacketCounts packets;
        PacketCounts more; // since the survey before
    };
    // Null when it was not asked for.
    [[nodiscard]] const Owner* owner(const FlowId& insideView) const;
    [[nodiscard]] bool isOpen(const FlowId& insideView) const;

    // Flows of freshly mapped endpoints that leave from elsewhere.
    [[nodiscard]] const std::vector<TrackedFlow>& conflicts() const { return conflicts_; }

private:
    struct Port {
        size_t mapping; // index of mappings_ and uses_
        Endpoint inside;
        Endpoint publicEndpoint;
        bool control;
    };
    using Ports = std::unordered_map<LocalId, Port, LocalIdHash>;

    void note(const TrackedFlow& flow, const Ports& byInside, const Ports& byPublic);
    void noteOwner(const TrackedFlow& flow);
    void noteUse(const Port& port, const TrackedFlow& flow, bool throughMapping);

    std::vector<Mapping> mappings_;
    std::vector<FlowId> connections_;
    std::vector<Use> uses_;
    std::unordered_map<FlowId, Owner, FlowIdHash> owners_;
    std::vector<TrackedFlow> conflicts_;
};

} // namespace gateway
