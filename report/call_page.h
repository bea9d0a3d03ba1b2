#pragma once

#include "report/call_record.h"

#include <ostream>
#include <string>
#include <vector>

namespace report {

struct PageTitle {
    std::string title;     // "Calls of in-fast-tun.pcap"; any octets
    std::string settings;  // one sentence: how the router was set
    int64_t zero = 0;      // from which the times of messages count
    uint64_t notShown = 0; // messages that were too many to keep
};

// Writes one HTML page of the calls that needs nothing else: ladders, streams and findings as HTML
// and SVG, and a script that shows single messages.
void writeCallPage(std::ostream& out, const PageTitle& title,
                   const std::vector<CallRecord>& records);

} // namespace report
