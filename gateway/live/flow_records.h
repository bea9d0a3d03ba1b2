#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/live_mappings.h"
#include "include/h323nat.h"

#include <deque>
#include <functional>
#include <unordered_map>

namespace gateway {

// The host's records of the TCP flows that the module asked about. The module may keep a pointer to
// a record for as long as it likes, so the memory of a record is never given back: a record that
// ended waits at the end of a line until it stands for another flow.
class FlowRecords {
public:
    static constexpr size_t capacity = 65536;

    // The record of a flow by its inside view; null when all are in use.
    HostMappingRecord* obtain(const FlowId& insideView, LiveSeconds now);

    [[nodiscard]] bool has(const FlowId& insideView) const { return byFlow_.contains(insideView); }

    // Ends the records of flows for which `isOpen` is false and which nobody asked about lately.
    void sweep(const std::function<bool(const FlowId&)>& isOpen, LiveSeconds now);

    template <typename Visit> void forEach(Visit visit) const {
        for (const auto& [flow, entry] : byFlow_) {
            visit(flow);
        }
    }

    [[nodiscard]] size_t inUse() const { return byFlow_.size(); }

private:
    struct Entry {
        HostMappingRecord record{};
        FlowId flow;
        LiveSeconds lastUse = 0;
    };
    std::deque<Entry> entries_;
    std::deque<Entry*> resting_;
    std::unordered_map<FlowId, Entry*, FlowIdHash> byFlow_;
};

} // namespace gateway
