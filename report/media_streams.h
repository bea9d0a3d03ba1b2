#pragma once

#include "report/flow_runs.h"

#include <vector>

namespace report {

// The media of a call, by the addresses that its messages tell and the packets that flowed between
// them: a stream for each private endpoint that was told outside, and one for each other private
// endpoint that exchanged packets with an address told from outside.
std::vector<MediaStream> mediaStreams(const CallRecord& record, const gateway::Network& inside,
                                      const FlowRuns& flows);

} // namespace report
