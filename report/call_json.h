#pragma once

#include "report/call_record.h"

#include <string>

namespace report {

// A call with its messages, mappings, streams and findings as one JSON object, and back: what one
// process keeps for another that makes a page of it. Times are nanoseconds, octets hexadecimal.
std::string callJson(const CallRecord& record);

// Throws std::runtime_error with what is wrong when the text is no such object.
CallRecord callFromJson(const std::string& json);

} // namespace report
