#pragma once

#include "gateway/live/event_log.h"
#include "gateway/live/live_calls.h"
#include "gateway/live/live_mappings.h"
#include "report/call_archive.h"

#include <cstdint>
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

    // A call is over, and its last message was noted.
    void end(const LiveCall& call);
    // Running calls tell how far they are.
    void update(const LiveCalls& calls);

    // Now, as times of records.
    static int64_t wallClock();

private:
    void check(const std::string& failure);

    EventLog& log_;
    report::CallArchive archive_;
    std::vector<uint8_t> packet_;
};

} // namespace gateway
