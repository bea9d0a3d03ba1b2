#pragma once

#include <string>

#include "cli/vector_file.h"

namespace cli {

/// Decodes the line's message in lossless mode, sets addresses in it through the module's own
/// write-back, and sets them back. The addresses are those of the line's list
/// FIELD=OFFSET:LENGTH,... or, without a list, every one that a rule may set. Gives why the line
/// fails; empty when exactly those octets changed, the list names the places where the decoder
/// found them, and setting them back gave the original. Leaves the module in lossless mode.
std::string losslessFaultOf(const VectorLine& line);

} // namespace cli
