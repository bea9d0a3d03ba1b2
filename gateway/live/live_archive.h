#pragma once

#include "gateway/live/event_log.h"
#include "gateway/live/live_calls.h"
#include "gateway/live/live_mappings.h"
#include "report/call_archive.h"

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace gateway {

// What was said in the last calls, in files for those who ask later, if the operator wants them.
class LiveArchive {
public:
    explicit LiveArchive(EventLog& log) : log_(log) {}

    void configure(const LiveConfig& config);
    [[nodiscard]] bool keeps() const { return archive_.keeps(); }

    // The packet that goes to the module next, as it came.
    void notePacket(std::span<const uint8_t> packet);
    void noteMapping(uint64_t call, const report::MappingRecord& mapping);
    // `host` is the call's; null when it is not known.
    void noteMessage(const ReportedMessage& message, const std::vector<ReportedAddress>& remaining,
                     const LiveCall* call);

    // Media of a call, as its private host has it, since the survey before.
    void notePackets(const LiveCall& call, const FlowId& flow, const PacketCounts& more);

    // A call is over, and its last message was noted.
    void end(const LiveCall& call);
    // A survey of the kernel's counts is over: running calls tell how far they are.
    void endSurvey(const LiveCalls& calls);

    // Now, as times of records.
    static int64_t wallClock();

private:
    // A call whose last packets are not counted yet.
    struct Over {
        uint64_t number = 0;
        report::CallRecord record;
        int surveys = 0;
    };

    void finish(const Over& over);
    void check(const std::string& failure);

    EventLog& log_;
    report::CallArchive archive_;
    std::vector<uint8_t> packet_;
    std::deque<Over> over_; // by their ends
    int64_t lastSurvey_ = report::never;
};

} // namespace gateway
