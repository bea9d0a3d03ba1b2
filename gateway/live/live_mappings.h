#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/config.h"
#include "gateway/live/counters.h"
#include "gateway/live/flow_survey.h"
#include "gateway/live/table_sets.h"
#include "gateway/port_allocator.h"
#include "include/h323nat.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gateway {

const char* nameOf(MappingKind kind);

// How long packets of a connection are shown after the module's interest in it has ended.
constexpr LiveSeconds overLinger = 5;

// A public port that leads to a private endpoint; for media also the port above it.
struct LiveMapping {
    uint64_t number = 0; // no number comes twice
    MappingKind kind = MappingKind::Media;
    uint32_t role = 0; // of a control mapping, H323NAT_ROLE_..., as soon as the module tells it
    Endpoint inside;
    Endpoint publicEndpoint; // of media an even port
    FlowId owner;            // inside view of the connection whose message asked last
    uint64_t call = 0;       // of that message; 0: none
    LiveSeconds opened = 0;
    LiveSeconds lastUse = 0;         // by the private host
    bool callOver = false;           // `call` has ended
    bool answered = false;           // RAS: a gatekeeper has confirmed
    bool over = false;               // the module needs it no more,
    LiveSeconds overAt = 0;          // and its connections are over from then on
    bool adopted = false;            // from an earlier run: its call is not known
    bool fresh = true;               // no sweep has looked for flows that were there before it
    bool shown = false;              // control: the module sees its connections
    bool leaves[2] = {false, false}; // packets of this endpoint leave from the public port
    HostMappingRecord records[2]{};

    [[nodiscard]] Protocol protocol() const {
        return kind == MappingKind::Control ? Protocol::Tcp : Protocol::Udp;
    }
    [[nodiscard]] int ports() const { return kind == MappingKind::Media ? 2 : 1; }
};

// Whether a public port may be handed out, for all that the machine does with it otherwise.
using PortCheck = std::function<bool(Protocol, uint16_t)>;

// The mappings that are open. Knows nothing of the kernel: the caller installs what `forwardsOf`
// says, and surveys the flows that there are.
class LiveMappings {
public:
    // `seed` decides which public port a private endpoint gets: the same one in every run that has
    // the same seed, where it is free. No private host can choose it.
    LiveMappings(const LiveConfig& config, uint64_t seed, PortCheck isFree);
    LiveMappings(const LiveMappings&) = delete;
    LiveMappings& operator=(const LiveMappings&) = delete;

    // Who asks, and for what it stands outside.
    struct Request {
        MappingKind kind = MappingKind::Media;
        Endpoint inside;
        uint32_t publicAddress = 0;
        FlowId owner;
        uint64_t call = 0;
    };
    struct Opened {
        LiveMapping* mapping = nullptr; // null: refused
        bool reused = false;
        Cause refusal = Cause::refusedPorts;
    };

    // The mapping for a private endpoint; the one that is open already, if there is one.
    Opened open(const Request& request, LiveSeconds now);

    // Takes over forwards of an earlier run. Returns how many mappings came of it.
    size_t adopt(std::span<const PortForward> forwards, uint32_t publicAddress, LiveSeconds now);

    // Mappings that another router has told: those that are not open are adopted, and their
    // forwards handed back; those that were adopted before stay open.
    std::vector<PortForward> hear(std::span<const PortForward> forwards, uint32_t publicAddress,
                                  LiveSeconds now);

    // Forwards of mappings opened here, with numbers above `after`; sets `after` to the last one.
    [[nodiscard]] std::vector<PortForward> ownForwards(uint64_t& after) const;

    // Takes back a mapping that the kernel refused.
    void withdraw(uint64_t number);

    // The mapping of a public endpoint's port; null when there is none.
    LiveMapping* findPublic(Protocol protocol, uint16_t publicPort);
    LiveMapping* findInside(MappingKind kind, const Endpoint& inside);

    // A call has ended: its mappings wait for silence.
    void endCall(uint64_t call, LiveSeconds now);

    // The module needs the mapping of this public port no more; `takeOver` closes it.
    void markOver(Protocol protocol, uint16_t publicPort, LiveSeconds now);

    // Flows may have begun while the mappings were not in the kernel: the next sweep ends those
    // that go by them.
    void lookForFlows();

    // Packets leave from another public address from now on, also those of open mappings.
    void setPublicAddress(uint32_t before, uint32_t address);

    // New limits and times for mappings opened from now on; open ones stay.
    void configure(const LiveConfig& config);

    struct Swept {
        std::vector<PortForward> forwards; // no longer valid
        std::vector<TrackedFlow> flows;    // to be forgotten by the kernel
        std::list<LiveMapping> ended;
    };

    // What a survey of the kernel's flows has to look for.
    [[nodiscard]] FlowSurvey survey() const;

    // Brings the mappings up to date with a survey, and closes those whose call is over and which
    // nobody uses.
    Swept sweep(const FlowSurvey& survey, LiveSeconds now);

    // Closes mappings that have made room for others, and those that the module has needed no more
    // for `overLinger` seconds: their connections are shown until they are closed.
    Swept takeOver(LiveSeconds now);

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

    LiveMapping& add(MappingKind kind, const Endpoint& inside, const Endpoint& publicEndpoint,
                     LiveSeconds now);
    std::optional<uint16_t> takePort(MappingKind kind, const Endpoint& inside);
    [[nodiscard]] uint16_t wishFor(MappingKind kind, const Endpoint& inside) const;
    bool makeRoomForRegistration(uint32_t host, LiveSeconds now);
    void close(Iterator mapping, Swept& swept);
    void release(Iterator mapping);
    PortAllocator& allocator(Protocol protocol);
    [[nodiscard]] LiveSeconds idleLimit(const LiveMapping& mapping, const FlowSurvey& survey) const;

    LiveConfig config_;
    uint64_t seed_;
    PortCheck isFree_;
    PortAllocator udpPorts_;
    PortAllocator tcpPorts_;
    std::vector<std::pair<Protocol, uint16_t>> usedByMachine_; // taken, so that none looks again
    uint64_t nextNumber_ = 1;
    std::list<LiveMapping> mappings_;
    std::unordered_map<Key, Iterator, KeyHash> byInside_;
    std::unordered_map<LocalId, Iterator, LocalIdHash> byPublicPort_; // address 0
    std::unordered_map<uint64_t, Iterator> byNumber_;
    std::unordered_map<uint64_t, std::vector<uint64_t>> byCall_;
    std::unordered_map<uint32_t, uint32_t> perHost_;
    std::unordered_map<LocalId, uint64_t, LocalIdHash> leaving_;
    struct Over {
        uint64_t number;
        LiveSeconds at; // of the mapping then: it may have been asked for again since
    };
    std::deque<Over> over_;
    std::vector<uint64_t> unanswered_; // RAS, oldest first; some of them are answered since
};

} // namespace gateway
