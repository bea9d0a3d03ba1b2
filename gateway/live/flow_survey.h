#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/conntrack.h"

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gateway {

// Seconds of a clock that never steps back.
using LiveSeconds = int64_t;

// When a private endpoint last sent media.
struct EndpointUse {
    Endpoint inside;
    LiveSeconds ago = 0;
};

// What the open mappings want to know of the kernel's connections, and of what private hosts sent.
// Stands for itself, so that another thread may fill it: a table of many connections takes its
// time.
class FlowSurvey {
public:
    // A port of a mapping; `number` is the mapping's.
    void addPort(uint64_t number, Protocol protocol, const Endpoint& inside,
                 const Endpoint& publicEndpoint, bool leaves, bool fresh);
    // A TCP connection.
    void addOwner(const FlowId& insideView) { owners_.try_emplace(insideView); }

    void note(const TrackedFlow& flow);
    void noteUses(std::vector<EndpointUse> uses) { endpointUses_ = std::move(uses); }

    struct Use {
        bool open = false;              // a TCP connection through the mapping
        std::vector<TrackedFlow> flows; // through the mapping
    };
    // Null when no connection goes through the mapping.
    [[nodiscard]] const Use* useOf(uint64_t number) const;
    [[nodiscard]] bool isOpen(const FlowId& owner) const;
    [[nodiscard]] bool hasOwner(const FlowId& owner) const { return owners_.contains(owner); }
    [[nodiscard]] PacketCounts packetsOf(const FlowId& owner) const;
    // Flows of freshly mapped endpoints that leave from elsewhere.
    [[nodiscard]] const std::vector<TrackedFlow>& conflicts() const { return conflicts_; }

    [[nodiscard]] const std::vector<EndpointUse>& endpointUses() const { return endpointUses_; }

private:
    struct Port {
        uint64_t number;
        Endpoint inside;
        Endpoint publicEndpoint;
        bool fresh;
    };

    struct Owner {
        bool open = false;
        PacketCounts packets;
    };

    void noteOwner(const TrackedFlow& flow);
    void use(const Port& port, const TrackedFlow& flow, bool throughMapping);

    std::unordered_map<LocalId, Port, LocalIdHash> byInside_;
    std::unordered_map<LocalId, Port, LocalIdHash> byPublic_;
    std::unordered_map<FlowId, Owner, FlowIdHash> owners_;
    std::unordered_map<uint64_t, Use> uses_;
    std::vector<TrackedFlow> conflicts_;
    std::vector<EndpointUse> endpointUses_;
};

} // namespace gateway
