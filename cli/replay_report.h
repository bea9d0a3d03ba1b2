#pragma once

#include "gateway/replay.h"

#include <cstdint>
#include <memory>
#include <ostream>

namespace cli {

// Writes what a replay did. The field names of the JSON form are an interface: h323nat(1) lists
// them, and none is renamed or dropped.
class ReplayReport : public gateway::ReplayListener {
public:
    virtual void onEnd(const gateway::ReplayTotals& totals) = 0;
};

// Lines for people; times are seconds since the capture's first frame. Colours tell what changed
// and what stayed.
std::unique_ptr<ReplayReport> makeTextReport(std::ostream& out, bool coloured);

// One JSON object a line.
std::unique_ptr<ReplayReport> makeJsonReport(std::ostream& out);

} // namespace cli
