#pragma once

#include "gateway/capture_file.h"
#include "gateway/message_log.h"
#include "gateway/reference_host.h"
#include "gateway/segment_hold.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace gateway {

// Counters of one replay. `packets` is the sum of all verdicts.
struct ReplayTotals {
    uint64_t packets = 0;
    uint64_t ipv6 = 0;          // of the packets with the verdict NotIpv4
    uint64_t truncated = 0;     // of the translated ones
    uint64_t unmappedCalls = 0; // of those with NoMapping, to the port of call signalling
    std::array<uint64_t, verdictCount> verdicts{};

    uint64_t messages = 0; // the next four add up to this
    uint64_t rewritten = 0;
    uint64_t undecodable = 0;
    uint64_t nothingToTranslate = 0;
    uint64_t privateAddressKept = 0; // unchanged though it tells its receiver a private address
    uint64_t addressesKept = 0;      // private ones that went out, in messages of any kind

    uint64_t rewrittenPackets = 0;
    uint64_t mappings = 0;
    uint64_t refusedMappings = 0;
    HoldCounts hold;

    [[nodiscard]] uint64_t count(Verdict verdict) const {
        return verdicts.at(static_cast<size_t>(verdict));
    }
};

// Told during Replay::process and Replay::finish. References are valid during the call.
class ReplayListener {
public:
    ReplayListener() = default;
    ReplayListener(const ReplayListener&) = delete;
    ReplayListener& operator=(const ReplayListener&) = delete;
    virtual ~ReplayListener() = default;

    // What became of a packet. Told after what the module said of it.
    virtual void onPacket(const CapturedFrame& /*frame*/, const PacketOutcome& /*outcome*/) {}
    virtual void onCall(const CapturedFrame& /*frame*/, const ReportedCall& /*call*/) {}
    virtual void onMapping(const CapturedFrame& frame, const MappingRequest& request) = 0;
    // A message that was whole with this frame. `remaining`: private addresses that it still tells.
    virtual void onMessage(const CapturedFrame& frame, const ReportedMessage& message,
                           const std::vector<ReportedAddress>& remaining) = 0;
};

// Where frames go when they have left the router, in the capture's order.
using FrameSink = std::function<void(const CapturedFrame& frame)>;

// Sends the frames of a capture through the reference host. In the full scope it keeps the segments
// of a message that is not whole yet; frames behind them wait meanwhile.
class Replay {
public:
    // Throws std::runtime_error when the module cannot start. `listener` outlives the replay.
    Replay(const ReferenceHostSettings& settings, int linkType, ReplayListener& listener,
           FrameSink sink);

    // Takes the next frame; its buffer may be taken too.
    void process(CapturedFrame& frame);

    // Lets everything go that still waits.
    void finish();

    [[nodiscard]] const ReplayTotals& totals() const { return totals_; }

private:
    struct Waiting {
        CapturedFrame frame;
        size_t offset = 0; // of the IP packet
        bool held = false;
    };

    void processIpv4(CapturedFrame& frame, size_t offset);
    bool mayHold(const PacketLayout& layout, std::span<const uint8_t> packet) const;
    bool hold(CapturedFrame& frame, size_t offset, std::span<const uint8_t> packet,
              const PacketLayout& layout);
    void expire(const CaptureTime& now, bool all);
    void letGo(ReleasedSegments& released);
    void note(const CapturedFrame& frame, const PacketOutcome& outcome);
    void report(const CapturedFrame& frame, const PacketOutcome& outcome);
    void count(const ReportedMessage& message, const std::vector<ReportedAddress>& remaining);
    void pass(CapturedFrame& frame, size_t offset, bool held);
    void writeReady();

    Network inside_;
    int linkType_;
    bool holds_;
    ReplayListener& listener_;
    FrameSink sink_;
    MessageLog log_;
    ReferenceHost host_;
    SegmentHold hold_;
    ReplayTotals totals_;
    std::deque<Waiting> waiting_;
    size_t waitingOctets_ = 0;
    uint64_t firstWaiting_ = 0; // token of waiting_.front()
    Milliseconds now_ = 0;      // never steps back
};

} // namespace gateway
