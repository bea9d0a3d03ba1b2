#include "gateway/live/flow_records.h"

#include "gateway/mapping_links.h"

namespace gateway {
namespace {

constexpr LiveSeconds lingering = 120;

} // namespace

HostMappingRecord* FlowRecords::obtain(const FlowId& insideView, LiveSeconds now) {
    if (const auto found = byFlow_.find(insideView); found != byFlow_.end()) {
        found->second->lastUse = now;
        return &found->second->record;
    }
    Entry* entry = nullptr;
    if (entries_.size() < capacity) {
        entry = &entries_.emplace_back();
    } else if (!resting_.empty()) {
        entry = resting_.front();
        resting_.pop_front();
    } else {
        return nullptr;
    }
    entry->record = {};
    entry->record.insideAddress = insideView.local.address;
    entry->record.insidePort = insideView.local.port;
    entry->flow = insideView;
    entry->lastUse = now;
    byFlow_.emplace(insideView, entry);
    return &entry->record;
}

void FlowRecords::sweep(const std::function<bool(const FlowId&)>& isOpen, LiveSeconds now) {
    for (auto found = byFlow_.begin(); found != byFlow_.end();) {
        Entry* entry = found->second;
        if (now - entry->lastUse <= lingering || isOpen(entry->flow)) {
            ++found;
            continue;
        }
        unlinkChildren(entry->record);
        resting_.push_back(entry);
        found = byFlow_.erase(found);
    }
}

} // namespace gateway
