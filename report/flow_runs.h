#pragma once

#include "report/call_record.h"

#include <set>
#include <unordered_map>
#include <vector>

namespace report {

// Packets between a private and an outside endpoint in a part of the time. Those that met no
// mapping have the endpoint that they were sent to in place of the private one.
struct FlowRun {
    gateway::FlowId flow;
    uint64_t epoch = 0;
    PacketRun sent;
    PacketRun received;
    PacketRun lost;

    [[nodiscard]] int64_t first() const;
    [[nodiscard]] int64_t last() const;
};

// Counts the packets of UDP flows. Calls use the ports of earlier ones again, so the count of a
// flow begins anew where a call of one of its ends begins or ends.
class FlowRuns {
public:
    explicit FlowRuns(size_t most) : most_(most) {}

    void add(int64_t time, const gateway::PacketOutcome& outcome);
    void add(const gateway::FlowId& flow, const PacketRun& sent, const PacketRun& received);
    void split(uint32_t address) { ++epochs_[address]; }

    // Whose private, or outside, end is one of `endpoints`, and that has packets between the times.
    [[nodiscard]] std::vector<const FlowRun*> find(const std::set<uint64_t>& local,
                                                   const std::set<uint64_t>& remote, int64_t from,
                                                   int64_t to) const;

    static uint64_t key(const gateway::Endpoint& endpoint) {
        return uint64_t{endpoint.address} << 16 | endpoint.port;
    }

private:
    using Index = std::unordered_map<uint64_t, std::vector<size_t>>;

    FlowRun* runOf(const gateway::FlowId& flow);
    [[nodiscard]] uint64_t epochOf(const gateway::FlowId& flow) const;

    size_t most_;
    std::vector<FlowRun> runs_;
    std::unordered_map<gateway::FlowId, size_t, gateway::FlowIdHash> current_;
    Index byLocal_;
    Index byRemote_;
    std::unordered_map<uint32_t, uint64_t> epochs_;
};

} // namespace report
