#pragma once

#include "gateway/live/config.h"

#include <cstdint>
#include <set>
#include <string>

namespace gateway {

// The interface's first IPv4 address, as a number; 0 when it has none or does not exist.
uint32_t addressOfInterface(const std::string& name);

// The kernel's indices of the interfaces towards the private hosts that are there.
std::set<uint32_t> indicesOfInside(const LiveConfig& config);

// The kernel's index of the interface; 0 when it does not exist.
uint32_t indexOfInterface(const std::string& name);

} // namespace gateway
