#pragma once

#include <string>

#include "cli/vector_file.h"

namespace cli {

/// Whether the locator finds in a message just the places that the third field lists,
/// PATH=OFFSET,... in order or - for none. Says why not; empty when it does.
std::string placesFaultOf(const VectorLine& line);

} // namespace cli
