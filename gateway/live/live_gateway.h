#pragma once

#include "gateway/ipv4_packet.h"
#include "gateway/live/conntrack.h"
#include "gateway/live/event_log.h"
#include "gateway/live/flow_records.h"
#include "gateway/live/live_mappings.h"
#include "gateway/live/netfilter_table.h"
#include "gateway/live/packet_queue.h"
#include "gateway/message_tracker.h"
#include "gateway/module_session.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace gateway {

// A call-signalling connection between a private host and an outside party.
struct LiveCall {
    FlowId flow; // inside view
    bool inbound = false;
    LiveSeconds started = 0;
};

// The host of the module on a Linux router: packets of the queue go to the module's hooks, the
// module's requests become elements of the nftables maps, and the kernel's connection table tells
// which flows are whose.
class LiveGateway final : private Translator {
public:
    LiveGateway(const LiveConfig& config, uint32_t publicAddress, NetfilterTable& table,
                Conntrack& conntrack, EventLog& log, Counters& counters);

    // Takes over the mappings of a table left behind, and makes the gateway's own. Gives an empty
    // text, or what went wrong.
    std::string start(LiveSeconds now);

    // One packet that the kernel waits for. The verdict is given before it returns.
    void handle(const QueuedPacket& packet, PacketQueue& queue, LiveSeconds now);

    // Closes what is over. To be called every `sweep` seconds, and soon when `wantsSweep`.
    void sweep(LiveSeconds now);
    [[nodiscard]] bool wantsSweep() const { return wantsSweep_; }

    // Goes on with a new configuration or public address; calls and mappings stay. Gives an empty
    // text, or why the kernel refused the new rules, in which case nothing has changed.
    std::string reconfigure(const LiveConfig& config, uint32_t publicAddress);

    // The indices of the two interfaces; 0 while an interface does not exist.
    void setInterfaces(uint32_t inside, uint32_t outside);

    [[nodiscard]] const LiveConfig& config() const { return config_; }
    [[nodiscard]] uint32_t publicAddress() const { return publicAddress_; }
    [[nodiscard]] const LiveMappings& mappings() const { return mappings_; }
    [[nodiscard]] const std::unordered_map<FlowId, LiveCall, FlowIdHash>& calls() const {
        return calls_;
    }

private:
    enum class Side : uint8_t { Inside, Outside };

    MediaMapping openMedia(const Endpoint& inside, uint32_t remoteAddress) override;
    std::optional<ControlMapping> openControl(const Endpoint& inside,
                                              uint32_t remoteAddress) override;
    HostMappingRecord* findInside(const Endpoint& inside, const Endpoint& remote) override;
    HostMappingRecord* findOutside(const Endpoint& publicEndpoint, const Endpoint& remote) override;

    // A packet that may carry H.323 messages, kept until its verdict is given.
    struct Shown {
        bool changed = false;
        bool reported = false;
        FlowId insideView;
        PacketLayout layout;
    };

    Shown show(std::span<uint8_t> octets, Side side);
    void prepareReport(std::span<const uint8_t> octets, Side side, Shown& shown);
    void report(std::span<const uint8_t> octets, Side side, const Shown& shown);
    void logRewrite(const ObservedMessage& message, const FlowId& insideView, Side side);
    std::optional<FlowId> insideViewOfPacket(std::span<const uint8_t> octets,
                                             const PacketLayout& layout, Side side);
    LiveMapping* openMapping(MappingKind kind, const Endpoint& inside, uint32_t remoteAddress,
                             bool& reused);
    void refuse(Cause cause, MappingKind kind, const Endpoint& inside, uint32_t remoteAddress);
    void followCall(std::span<const uint8_t> octets, const PacketLayout& layout, Side side);
    void startCall(const FlowId& flow, bool inbound, const FlowViews& views);
    void endCall(const FlowId& flow);
    void forgetClosed(std::span<const TrackedFlow> flows);
    void leaveForeign(std::span<const uint8_t> octets, const PacketLayout& layout);
    HostMappingRecord* recordOf(const FlowId& insideView);

    LiveConfig config_;
    uint32_t publicAddress_;
    NetfilterTable& table_;
    Conntrack& conntrack_;
    EventLog& log_;
    Counters& counters_;
    LiveMappings mappings_;
    FlowRecords records_;
    ModuleSession module_;
    std::unordered_map<FlowId, LiveCall, FlowIdHash> calls_;
    std::unordered_set<FlowId, FlowIdHash> control_; // TCP connections that may be H.245
    uint32_t insideIndex_ = 0;
    uint32_t outsideIndex_ = 0;
    bool wantsSweep_ = false;

    MessageTracker messages_;
    std::vector<uint8_t> before_; // payload before the module saw it

    // Of the packet in the module's hands.
    LiveSeconds now_ = 0;
    FlowId sentFlow_;
};

} // namespace gateway
