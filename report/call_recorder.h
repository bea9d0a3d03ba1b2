#pragma once

#include "report/call_record.h"
#include "report/media_streams.h"

#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace report {

struct RecorderSettings {
    gateway::Network inside;
    size_t mostMessages = 50'000; // kept; those behind are counted
    size_t mostFlows = 65'536;    // UDP flows whose packets are counted
};

// What a capture or a gateway tells, sorted into calls. Give it events in the order in which they
// happened; a mapping comes before the message that asked for it.
class CallRecorder {
public:
    explicit CallRecorder(const RecorderSettings& settings)
        : settings_(settings), flows_(settings.mostFlows) {}

    void addCall(int64_t time, const gateway::ReportedCall& call);
    void addMapping(int64_t time, const gateway::MappingRequest& request);
    void addMessage(int64_t time, uint64_t frame, const gateway::ReportedMessage& message,
                    const std::vector<gateway::ReportedAddress>& remaining);
    void addPacket(int64_t time, const gateway::PacketOutcome& outcome);

    // The calls in the order of their first messages, with streams and findings. The recorder is
    // empty then.
    std::vector<CallRecord> finish();

    [[nodiscard]] uint64_t messagesNotKept() const { return notKept_; }

private:
    using Parties = std::pair<uint32_t, uint32_t>;    // private and outside address
    using Connection = std::pair<uint64_t, uint64_t>; // private and outside endpoint

    struct KnownCall {
        gateway::ReportedCall call;
        int64_t ended = never;
    };
    // The last RAS message between two parties: an answer names no call.
    struct LastRas {
        size_t record = 0;
        uint32_t direction = 0;
    };

    size_t recordOf(const gateway::ReportedMessage& message);
    size_t recordOfCall(const gateway::ReportedMessage& message);
    size_t recordOfParties(const gateway::ReportedMessage& message);
    void remember(const gateway::ReportedMessage& message, size_t number);
    void placeMappings(CallRecord& record, const gateway::ReportedMessage& message);
    void complete(CallRecord& record, const KnownCall& known) const;

    RecorderSettings settings_;
    std::vector<CallRecord> records_;
    std::unordered_map<uint64_t, KnownCall> calls_;
    std::unordered_map<uint64_t, size_t> byCall_;
    std::unordered_map<std::string, size_t> byIdentifier_;
    std::map<Parties, size_t> byParties_;
    std::map<Parties, LastRas> lastRas_;
    std::map<Connection, size_t> byConnection_;
    std::deque<MappingRecord> waitingMappings_;
    FlowRuns flows_;
    size_t kept_ = 0;
    uint64_t notKept_ = 0;
};

} // namespace report
