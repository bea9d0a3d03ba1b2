// Members' names by the words of the locator's programs at which they are walked; generated.
#pragma once

#include <cstddef>
#include <cstdint>

extern const size_t locatorNameCount;
extern const uint16_t locatorNamedWords[];  // ascending
extern const uint16_t locatorNameOffsets[]; // in locatorNames
extern const char locatorNames[];           // each ended with 0
