#pragma once

#include <cstdint>
#include <string>

namespace cli {

/// A codec status as a user reads it: "-11 (unknown CHOICE alternative)".
std::string statusText(int32_t status);

} // namespace cli
