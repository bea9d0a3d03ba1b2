#pragma once

#include "gateway/capture_file.h"
#include "gateway/message_tracker.h"
#include "gateway/reference_host.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace gateway {

// Counters of one replay. `packets` is the sum of all verdicts.
struct ReplayTotals {
    uint64_t packets = 0;
    uint64_t ipv6 = 0;      // of the packets with the verdict NotIpv4
    uint64_t truncated = 0; // of the translated ones
    std::array<uint64_t, verdictCount> verdicts{};

    uint64_t messages = 0; // the next four add up to this
    uint64_t rewritten = 0;
    uint64_t undecodable = 0;
    uint64_t nothingToTranslate = 0;
    uint64_t privateAddressKept = 0; // unchanged though it tells a media or H.245 address inside

    uint64_t rewrittenPackets = 0;
    uint64_t mappings = 0;
    uint64_t refusedMappings = 0;

    [[nodiscard]] uint64_t count(Verdict verdict) const {
        return verdicts.at(static_cast<size_t>(verdict));
    }
};

// Told during Replay::process. References are valid during the call.
class ReplayListener {
public:
    ReplayListener() = default;
    ReplayListener(const ReplayListener&) = delete;
    ReplayListener& operator=(const ReplayListener&) = delete;
    virtual ~ReplayListener() = default;

    virtual void onMapping(const CapturedFrame& frame, const MappingRequest& request) = 0;
    virtual void onRewrite(const CapturedFrame& frame, Direction direction,
                           const ObservedMessage& message) = 0;
};

// Sends the frames of a capture through the reference host, one at a time.
class Replay {
public:
    // Throws std::runtime_error when the module cannot start. `listener` outlives the replay.
    Replay(const ReferenceHostSettings& settings, int linkType, ReplayListener& listener);

    // Turns the frame into the one that leaves the router.
    void process(CapturedFrame& frame);

    [[nodiscard]] const ReplayTotals& totals() const { return totals_; }

private:
    void processIpv4(CapturedFrame& frame, size_t offset);
    void observe(const CapturedFrame& frame, std::span<const uint8_t> packet,
                 const PacketLayout& layout, const PacketOutcome& outcome);
    [[nodiscard]] bool announcesPrivateAddress(const MessageDescription& description) const;
    void count(Direction direction, const ObservedMessage& message);

    Network inside_;
    int linkType_;
    ReplayListener& listener_;
    ReferenceHost host_;
    MessageTracker tracker_;
    ReplayTotals totals_;
    std::vector<uint8_t> before_; // payload as it came, kept between packets
};

} // namespace gateway
