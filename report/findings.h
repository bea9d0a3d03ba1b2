#pragma once

#include "report/call_record.h"

namespace report {

// Says in `record` what became of the call: verdict and findings, by its messages and streams.
void judge(CallRecord& record, const gateway::Network& inside);

// Whether the verdict says that nothing is wrong.
bool isGood(const CallRecord& record);

} // namespace report
