#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/config.h"
#include "gateway/live/conntrack.h"
#include "gateway/live/counters.h"
#include "gateway/live/ruleset.h"
#include "gateway/port_allocator.h"
#include "include/h323nat.h"

#include <cstdint>
#include <list>
#include <span>
#include <unordered_map>
#include <vector>

namespace gateway {

// Seconds of a clock that never steps back.
using LiveSeconds = int64_t;

enum class MappingKind : uint8_t { Media, Ras, Control };

const char* nameOf(MappingKind kind);

// A public port that leads to a private endpoint; for media also the port above it.
struct LiveMapping {
    MappingKind kind = MappingKind::Media;
    Endpoint inside;
    uint16_t publicPort = 0; // even
    uint32_t remoteAddress = 0;
    FlowId owner; // inside view of the connection whose message asked last
    LiveSeconds opened = 0;
    LiveSeconds lastUse = 0;
    LiveSeconds deadline = 0;        // when the kernel would forget its flows, as of the last sweep
    bool adopted = false;            // from an earlier run: its call is not known
    bool fresh = true;               // no sweep has looked for flows that were there before it
    bool leaves[2] = {false, false}; // packets of this endpoint leave from the public port
    HostMappingRecord records[2]{};

    [[nodiscard]] Protocol protocol() const {
        return kind == MappingKind::Control ? Protocol::Tcp : Protocol::Udp;
    }
    [[nodiscard]] int ports() const { return kind == MappingKind::Media ? 2 : 1; }
};

// The mappings that are open. Knows nothing of the kernel: the caller installs what `forwardsOf`
// says and tells `sweep` which flows there are.
class LiveMappings {
public:
    explicit LiveMappings(const LiveConfig& config);
    LiveMappings(const LiveMappings&) = delete;
    LiveMappings& operator=(const LiveMappings&) = delete;

    struct Opened {
        LiveMapping* mapping = nullptr; // null: refused
        bool reused = false;
        Cause refusal = Cause::refusedPorts;
    };

    // The mapping for a private endpoint; the one that is open already, if there is one.
    Opened open(MappingKind kind, const Endpoint& inside, uint32_t remoteAddress,
                const FlowId& owner, LiveSeconds now);

    // Takes over forwards of an earlier run. Returns how many mappings came of it.
    size_t adopt(std::span<const PortForward> forwards, LiveSeconds now);

    // Takes back a mapping that the kernel refused.
    void withdraw(LiveMapping& mapping);

    // New limits and times for mappings opened from now on; open ones stay.
    void configure(const LiveConfig& config);

    struct Swept {
        std::vector<PortForward> forwards; // no longer valid
        std::vector<TrackedFlow> flows;    // to be forgotten by the kernel
        std::list<LiveMapping> ended;
    };

    // Brings the mappings up to date with the flows that the kernel tracks and closes those whose
    // call is over and which nobody uses.
    Swept sweep(std::span<const TrackedFlow> flows, uint32_t publicAddress, LiveSeconds now);

    [[nodiscard]] static std::vector<PortForward> forwardsOf(const LiveMapping& mapping);
    [[nodiscard]] std::vector<PortForward> allForwards() const;
    [[nodiscard]] const std::list<LiveMapping>& all() const { return mappings_; }

private:
    using Iterator = std::list<LiveMapping>::iterator;
    struct Key {
        MappingKind kind;
        Endpoint inside;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        size_t operator()(const Key& key) const noexcept;
    };
    struct Sweep;

    LiveMapping& add(MappingKind kind, const Endpoint& inside, uint16_t publicPort,
                     LiveSeconds now);
    void release(Iterator mapping);
    PortAllocator& allocator(Protocol protocol);
    [[nodiscard]] LiveSeconds idleLimit(const LiveMapping& mapping, bool callOpen) const;

    LiveConfig config_;
    PortAllocator udpPorts_;
    PortAllocator tcpPorts_;
    std::list<LiveMapping> mappings_;
    std::unordered_map<Key, Iterator, KeyHash> byInside_;
    std::unordered_map<uint32_t, uint32_t> perHost_;
    std::unordered_map<LocalId, const LiveMapping*, LocalIdHash> leaving_;
};

} // namespace gateway
