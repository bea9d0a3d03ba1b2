#pragma once

#include "gateway/ipv4_packet.h"
#include "gateway/live/conntrack.h"
#include "gateway/live/event_log.h"
#include "gateway/live/flow_records.h"
#include "gateway/live/known_connections.h"
#include "gateway/live/live_archive.h"
#include "gateway/live/live_calls.h"
#include "gateway/live/live_mappings.h"
#include "gateway/live/netfilter_table.h"
#include "gateway/live/packet_queue.h"
#include "gateway/live/saved_state.h"
#include "gateway/message_log.h"
#include "gateway/module_session.h"
#include "gateway/segment_hold.h"

#include <chrono>
#include <deque>
#include <set>
#include <unordered_map>
#include <utility>

namespace gateway {

// The machine's interfaces and address as they are now.
struct RouterSides {
    std::set<uint32_t> inside; // interface indices
    uint32_t outside = 0;      // 0: the interface does not exist
    uint32_t publicAddress = 0;
};

// The host of the module on a Linux router: packets of the queue go to the module's hooks, the
// module's requests become elements of the nftables sets, and the kernel's connection table tells
// which flows are whose.
class LiveGateway final : private Translator, private ModuleObserver {
public:
    using Clock = std::chrono::steady_clock;

    LiveGateway(const LiveConfig& config, uint32_t publicAddress, uint64_t seed,
                NetfilterTable& table, Conntrack& conntrack, EventLog& log, Counters& counters);

    // Takes over the mappings of an earlier run, by its state and by the table that it may have
    // left behind, and makes the gateway's own table. Gives an empty text, or what went wrong.
    std::string start(const SavedState& before, LiveSeconds now);

    // One packet that the kernel waits for. Its verdict is given before this returns, or when the
    // rest of its message has come, and sent by `settle` at the latest.
    void handle(const QueuedPacket& packet, PacketQueue& queue, Clock::time_point now);
    void settle(PacketQueue& queue);

    // Lets go what was held for too long. `nextRelease` tells when to call it: never, if nothing is
    // held.
    void releaseHeld(PacketQueue& queue, Clock::time_point now);
    [[nodiscard]] Clock::time_point nextRelease() const;
    [[nodiscard]] size_t heldPackets() const { return waiting_.size(); }

    // What a survey of the kernel's flows has to look for.
    [[nodiscard]] FlowSurvey survey();

    // Counts the packets of calls, then closes what is over, by a survey that `survey` began.
    // To be called every `sweep` seconds, and soon when `wantsSweep`.
    void count(const FlowSurvey& survey, LiveSeconds now);
    void sweep(const FlowSurvey& survey, LiveSeconds now);
    [[nodiscard]] bool wantsSweep() const { return wantsSweep_; }

    // Goes on with a new configuration; calls and mappings stay. Gives an empty text, or why the
    // kernel refused the new rules, in which case nothing has changed.
    std::string reconfigure(const LiveConfig& config);

    // Goes on with other interfaces or another public address. Gives an empty text, or why the
    // kernel refused the new rules.
    std::string setSides(const RouterSides& sides);

    // Makes the table again, after somebody else has removed it or parts of it.
    std::string restoreTable();

    // Opens what a second router, which this one stands in for, has told.
    void hear(std::span<const PortForward> forwards, LiveSeconds now);

    [[nodiscard]] SavedState state() const;
    [[nodiscard]] const LiveConfig& config() const { return config_; }
    [[nodiscard]] const RouterSides& sides() const { return sides_; }
    [[nodiscard]] uint32_t publicAddress() const { return sides_.publicAddress; }
    [[nodiscard]] const LiveMappings& mappings() const { return mappings_; }
    [[nodiscard]] const LiveCalls& calls() const { return calls_; }

private:
    enum class Side : uint8_t { Inside, Outside };

    // A packet that waits for the rest of its message.
    struct Waiting {
        Side side;
        Clock::time_point arrived;
    };
    // A packet whose verdict is not sent yet.
    struct Given {
        Clock::time_point arrived;
        DelayHistogram* delay;
    };
    // What goes to the module together, and what becomes of it.
    struct Parcel {
        std::span<uint8_t> packet;
        PacketLayout layout;
        Side side;
        bool changed = false;
    };

    MediaMapping openMedia(const Endpoint& inside, uint32_t remoteAddress) override;
    std::optional<ControlMapping> openControl(const Endpoint& inside,
                                              uint32_t remoteAddress) override;
    HostMappingRecord* findInside(const Endpoint& inside, const Endpoint& remote) override;
    HostMappingRecord* findOutside(const Endpoint& publicEndpoint, const Endpoint& remote) override;

    void onMessage(const H323ObservedMessage& message) override;
    void onRewritten(const H323ObservedAddress& address) override;
    void onLeft(const H323ObservedAddress& address) override;
    void onCallBegan(const H323ObservedCall& call) override;
    void onCallEnded(const H323ObservedCall& call) override;
    void onAnnounced(const H323ObservedConnection& connection) override;
    void onOver(const H323ObservedConnection& connection) override;

    void release(ReleasedSegments& released, PacketQueue& queue);
    void give(uint32_t id, const Parcel& parcel, PacketQueue& queue, Clock::time_point arrived,
              DelayHistogram& delay);

    void show(Parcel& parcel);
    void showSent(Parcel& parcel);
    void showReceived(Parcel& parcel);
    void showMade(std::span<uint8_t> packet, Side side);
    Endpoint rasEndpoint(const Endpoint& gatekeeper);
    void recallRegistration(const LiveMapping& mapping, const Parcel& parcel);
    bool commit();

    bool introduce(const Parcel& parcel);
    void showBeginning(const FlowId& insideView, const FirstSequences& first,
                       const Endpoint& publicEndpoint, bool accepted);
    bool adopt(const Parcel& parcel, const FlowId& insideView, const Endpoint& publicEndpoint,
               bool accepted);
    std::optional<Endpoint> publicOf(const FlowId& insideView, bool& accepted);
    std::optional<Endpoint> listenerAt(uint16_t publicPort);

    LiveMapping* openMapping(MappingKind kind, const Endpoint& inside, uint32_t remoteAddress,
                             bool& reused);
    void refuse(Cause cause, MappingKind kind, const Endpoint& inside, uint32_t remoteAddress);
    void withdrawOpened();
    [[nodiscard]] uint32_t leavesFrom();
    [[nodiscard]] uint32_t askWhereItLeaves();
    [[nodiscard]] uint32_t advertised(uint32_t publicAddress) const;
    const PublishedHost* publishedAt(const Endpoint& inside) const;
    void addPublished();
    void fillTable();
    std::string refillTable();
    void expect(const Endpoint& endpoint);
    void expectNoMore();
    void close(const LiveMappings::Swept& swept);

    void report(LiveSeconds now);
    void reportMessage(const ReportedMessage& message);
    void noteMapping(MappingRequest::Kind kind, const Endpoint& inside,
                     const Endpoint& publicEndpoint, bool reused);
    void noteSetup(const Parcel& parcel);
    void noteMissed(const ReportedCall& call, const char* why);
    void endCall(uint64_t number, uint32_t end, uint32_t cause);
    void archiveOver();
    void checkTranslated(const LiveCall& call);
    HostMappingRecord* recordOf(const FlowId& insideView);

    LiveConfig config_;
    RouterSides sides_;
    uint64_t seed_;
    NetfilterTable& table_;
    Conntrack& conntrack_;
    EventLog& log_;
    Counters& counters_;
    LiveMappings mappings_;
    FlowRecords records_;
    ModuleSession module_;
    SegmentHold hold_;
    KnownConnections known_;
    LiveCalls calls_;
    LiveArchive archive_;
    MessageLog messages_;
    std::unordered_map<uint32_t, Waiting> waiting_; // by packet number
    std::vector<Given> given_;
    std::unordered_map<LocalId, uint32_t, LocalIdHash> expected_;
    std::deque<std::pair<LiveSeconds, Endpoint>> unexpected_; // from then on
    bool wantsSweep_ = false;

    // Of the packet in the module's hands.
    LiveSeconds now_ = 0;
    FlowId sentFlow_; // what the private host sent
    std::optional<uint32_t> leavesFrom_;
    Endpoint receivedAt_;          // where the packet from outside arrived
    bool recalling_ = false;       // it is made up, to tell the module of an earlier run
    uint64_t call_ = 0;            // of the message in it
    bool told_ = false;            // the module found a message in it
    std::vector<uint64_t> opened_; // mappings
    std::vector<uint64_t> begun_;  // calls
    std::vector<uint64_t> over_;   // calls
};

} // namespace gateway
