#pragma once

#include "gateway/endpoint.h"
#include "gateway/live/conntrack.h"

#include <unordered_map>

namespace gateway {

// How much the kernel's counts of packets have grown from one survey to the next. It counts
// connections, which may outlast a call and serve another.
class PacketGrowth {
public:
    // The same for everybody who asks between two ends of surveys.
    PacketCounts of(const FlowId& insideView, const PacketCounts& counted);

    // Connections that nobody asked for since the last time are forgotten.
    void endSurvey();

private:
    using Counts = std::unordered_map<FlowId, PacketCounts, FlowIdHash>;

    Counts before_;
    Counts now_;
};

} // namespace gateway
