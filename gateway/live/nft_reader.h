#pragma once

#include "gateway/live/flow_survey.h"

#include <cstdint>
#include <string>
#include <vector>

// Reads parts of an nftables table of the IPv4 family, and nothing else of the ruleset, however
// large that is.
namespace gateway {

// Packets that a named counter has seen; 0 when it cannot be read.
uint64_t readCounter(const std::string& table, const std::string& counter);

// The elements of a set of endpoints whose elements time out after `timeout` seconds, and how long
// ago each was set. Empty when the set cannot be read.
std::vector<EndpointUse> readUses(const std::string& table, const std::string& set,
                                  LiveSeconds timeout);

} // namespace gateway
