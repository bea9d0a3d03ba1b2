#include "gateway/live/packet_growth.h"

#include <utility>

namespace gateway {
namespace {

// A connection that was closed and opened again is counted from 0.
uint64_t growth(uint64_t before, uint64_t now) {
    return now < before ? now : now - before;
}

} // namespace

PacketCounts PacketGrowth::of(const FlowId& insideView, const PacketCounts& counted) {
    const auto before = before_.find(insideView);
    now_.insert_or_assign(insideView, counted);
    return before == before_.end()
               ? counted
               : PacketCounts{growth(before->second.sent, counted.sent),
                              growth(before->second.received, counted.received)};
}

void PacketGrowth::endSurvey() {
    before_ = std::exchange(now_, {});
}

} // namespace gateway
