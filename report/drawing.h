#pragma once

#include "report/call_record.h"
#include "report/message_data.h"

#include <ostream>

// The drawings of a call, as SVG. Colours and fonts come from page.css.
namespace report {

// What messages did between private hosts, router and outside parties, in parts of a hundred
// messages. Adds the messages to `data`. `zero` is the time from which times count.
void drawLadder(std::ostream& out, const CallRecord& record, int64_t zero, MessageData& data);

// Mappings and media streams as bars over the time of the call.
void drawStreams(std::ostream& out, const CallRecord& record);

// "into the void", "both ways", ...
const char* stateText(StreamState state);

} // namespace report
