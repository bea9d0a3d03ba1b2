#pragma once

#include "gateway/live/table_sets.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

// What a gateway hands to the next one: its open mappings, and the seed by which private endpoints
// get their public ports.
struct SavedState {
    uint64_t seed = 0; // 0: none
    std::vector<PortForward> forwards;
};

// Reads the file of an earlier run; a file that is not there is no failure. A file of another
// version of its form, or with octets that changed since, is refused. Gives an empty text, or what
// was wrong.
std::string readState(const std::string& path, SavedState& state);

// Replaces the file in one step. Gives an empty text, or what went wrong.
std::string writeState(const std::string& path, const SavedState& state);

} // namespace gateway
